#include "bridge/BlobWriter.h"

#include <algorithm>

namespace Torvane::Bridge
{
void BlobItems::Add(size_t fieldOffset, const void* data, size_t size)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    items.push_back({fieldOffset, std::vector<uint8_t>(bytes, bytes + size)});
}

std::vector<uint8_t> BlobItems::Finish(BlobType type, const void* fixed, size_t fixedSize) const
{
    std::vector<Item> sorted = items;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Item& left, const Item& right) {
        return left.fieldOffset < right.fieldOffset;
    });

    const uint8_t* fixedBytes = static_cast<const uint8_t*>(fixed);
    std::vector<uint8_t> payload(fixedBytes, fixedBytes + fixedSize);
    for (const Item& item : sorted)
    {
        const RelativeOffset offset = {static_cast<uint32_t>(payload.size() - item.fieldOffset)};
        memcpy(payload.data() + item.fieldOffset, &offset, sizeof(offset));
        payload.insert(payload.end(), item.data.begin(), item.data.end());
    }
    return MakeBlob(type, payload.data(), payload.size());
}

std::vector<uint8_t> MakeBlob(BlobType type, const void* payload, size_t size)
{
    const BlobHeader header = {static_cast<uint32_t>(size), type};
    std::vector<uint8_t> bytes(sizeof(header) + size);
    memcpy(bytes.data(), &header, sizeof(header));
    if (size != 0)
    {
        memcpy(bytes.data() + sizeof(header), payload, size);
    }
    return bytes;
}
} // namespace Torvane::Bridge
