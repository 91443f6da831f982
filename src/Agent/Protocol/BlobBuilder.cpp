#include "Agent/Protocol/BlobBuilder.h"

#include <string.h>
#include <utility>

namespace Torvane
{
namespace
{
template<typename Character>
uint32_t MeasureCharacters(const Character* text)
{
    uint32_t length = 0;
    while (text[length] != 0)
    {
        ++length;
    }
    return (length + 1) * static_cast<uint32_t>(sizeof(Character));
}

OwnedBlob AllocateBlob(BlobType type, uint32_t payloadSize)
{
    OwnedBlob block(Allocate(static_cast<uint32_t>(sizeof(BlobHeader)) + payloadSize));
    BlobHeader* header = static_cast<BlobHeader*>(block.Get().pointer);
    header->size = payloadSize;
    header->type = type;
    return block;
}

template<typename Character>
OwnedBlob BuildLog(BlobType type, BlobLogLevel level, const Character* text)
{
    BlobBuilder builder(type, sizeof(LogBlob), MeasureText(text));
    LogBlob* fixed = static_cast<LogBlob*>(builder.Payload());
    fixed->level = level;
    builder.AppendText(fixed->text, text);
    return builder.Finish();
}
} // namespace

uint32_t MeasureText(const char* text)
{
    return MeasureCharacters(text);
}

uint32_t MeasureText(const wchar_t* text)
{
    return MeasureCharacters(text);
}

BlobBuilder::BlobBuilder(BlobType type, uint32_t fixedSize, uint32_t itemsSize)
    : block(AllocateBlob(type, fixedSize + itemsSize))
    , next(static_cast<uint8_t*>(Payload()) + fixedSize)
{
    memset(Payload(), 0, fixedSize);
}

void* BlobBuilder::Append(RelativeOffset& field, const void* data, uint32_t size)
{
    uint8_t* item = next;
    if (data != nullptr)
    {
        memcpy(item, data, size);
    }
    field.value = static_cast<uint32_t>(item - reinterpret_cast<uint8_t*>(&field));
    next += size;
    return item;
}

void BlobBuilder::AppendArray(RelativeArray& field, const void* elements, uint32_t count,
                              uint32_t elementSize)
{
    Append(field.offset, elements, count * elementSize);
    field.count = count;
}

void BlobBuilder::AppendText(RelativeOffset& field, const char* text)
{
    Append(field, text, MeasureText(text));
}

void BlobBuilder::AppendText(RelativeOffset& field, const wchar_t* text)
{
    Append(field, text, MeasureText(text));
}

void* BlobBuilder::Payload() const
{
    return static_cast<uint8_t*>(block.Get().pointer) + sizeof(BlobHeader);
}

OwnedBlob BlobBuilder::Finish()
{
    return std::move(block);
}

OwnedBlob BuildLogBlob(BlobLogLevel level, const char* text)
{
    return BuildLog(BlobType::LogNarrow, level, text);
}

OwnedBlob BuildLogBlob(BlobLogLevel level, const wchar_t* text)
{
    return BuildLog(BlobType::LogWide, level, text);
}

OwnedBlob BuildUnwrittenBlob(BlobType type)
{
    return AllocateBlob(type, sizeof(UnwrittenBlob));
}
} // namespace Torvane
