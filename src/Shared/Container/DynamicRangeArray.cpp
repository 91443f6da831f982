#include "Shared/Container/DynamicRangeArray.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/VirtualMemory.h"

#include <string.h>

namespace Torvane
{
void DynamicRangeArray::Create(uint32_t maximum)
{
    range.Reserve(maximum);
    maximumCapacity = maximum;
    capacity = 0;
    count = 0;
}

void DynamicRangeArray::Resize(uint32_t newCapacity)
{
    if (!range.Ensure(newCapacity))
    {
        LogPanic(TVN_HERE, "Out of memory");
    }
    capacity = newCapacity;
}

void DynamicRangeArray::Append(const void* bytes, uint32_t size)
{
    if (capacity - count < size)
    {
        const uint32_t wanted = count + size < maximumCapacity ? count + size : maximumCapacity;
        Resize(static_cast<uint32_t>(VirtualMemory::RoundUpToPages(wanted)));
    }
    memcpy(range.base + count, bytes, size);
    count += size;
}

void DynamicRangeArray::Destroy()
{
    range.Release();
    maximumCapacity = 0;
    capacity = 0;
    count = 0;
}
} // namespace Torvane
