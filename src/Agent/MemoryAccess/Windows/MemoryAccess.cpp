#include "Agent/MemoryAccess/Windows/MemoryAccess.h"

#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Protocol/HostAddress.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"

#include <string.h>
#include <windows.h>

namespace Torvane
{
void ReadMemory(const ReadMemoryBlob& blob)
{
    const uint64_t totalSize = blob.elementSize * blob.elementCount;
    RecordBuilder<ReadMemoryResultBlob> builder(static_cast<uint32_t>(totalSize));
    ReadMemoryResultBlob& reply = builder.Fixed();
    reply.totalSize = totalSize;
    reply.token = blob.token;
    uint8_t* position =
        static_cast<uint8_t*>(builder.Append(reply.data, nullptr, static_cast<uint32_t>(totalSize)));
    const AddressItem* addresses = Follow<AddressItem>(blob.addresses);
    const uint32_t elementSize = static_cast<uint32_t>(blob.elementSize);
    for (uint64_t i = 0; i < blob.elementCount; ++i)
    {
        if (ToPointer(addresses[i].slot) != nullptr)
        {
            memcpy(position, ToPointer(addresses[i].slot), elementSize);
        }
        position += elementSize;
    }
    PushBlob(builder.Finish());
}

void WriteMemory(const WriteMemoryBlob& blob)
{
    const AddressItem* addresses = Follow<AddressItem>(blob.addresses);
    const uint8_t* position = Follow<uint8_t>(blob.data);
    const uint32_t elementSize = static_cast<uint32_t>(blob.elementSize);
    for (uint64_t i = 0; i < blob.elementCount; ++i)
    {
        memcpy(ToPointer(addresses[i].slot), position, elementSize);
        position += elementSize;
    }
}

void CopyMemoryElements(const CopyMemoryBlob& blob)
{
    const AddressItem* sources = Follow<AddressItem>(blob.sources);
    const AddressItem* destinations = Follow<AddressItem>(blob.destinations);
    for (uint64_t i = 0; i < blob.elementCount; ++i)
    {
        memcpy(ToPointer(destinations[i].slot), ToPointer(sources[i].slot), blob.elementSize);
    }
}

void SetPageProtection(const SetPageProtectionWindowsBlob& blob)
{
    for (uint32_t i = 0; i < blob.ranges.count; ++i)
    {
        const WirePageRange& range = Follow<WirePageRange>(blob.ranges)[i];
        if (range.protection == 0)
        {
            continue;
        }
        DWORD oldProtection = 0;
        const uint32_t size = static_cast<uint32_t>(range.size);
        if (!VirtualProtect(ToPointer(range.base), size, range.protection, &oldProtection))
        {
            LogDebug(TVN_HERE, "VirtualProtect() failed: address 0x%p, size 0x%X, protection 0x%X",
                     ToPointer(range.base), size, range.protection);
        }
    }
}

void FlushProcessInstructionCache()
{
    FlushInstructionCache(GetCurrentProcess(), nullptr, 0);
}
} // namespace Torvane
