#include "Shared/Memory/VirtualMemoryRange.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/VirtualMemory.h"

namespace Torvane
{
void VirtualMemoryRange::Reserve(size_t maximumSize)
{
    base = static_cast<uint8_t*>(VirtualMemory::Reserve(maximumSize));
    committedEnd = base;
    end = base + VirtualMemory::RoundUpToPages(maximumSize);
}

bool VirtualMemoryRange::Ensure(size_t bytes)
{
    const size_t committed = static_cast<size_t>(committedEnd - base);
    if (committed >= bytes)
    {
        return true;
    }
    const size_t missing = VirtualMemory::RoundUpToPages(bytes - committed);
    if (missing > static_cast<size_t>(end - committedEnd) || !VirtualMemory::Commit(committedEnd, missing))
    {
        LogError(TVN_HERE, "Cannot ensure %zu bytes of allocated physical memory", bytes);
        return false;
    }
    committedEnd += missing;
    return true;
}

void VirtualMemoryRange::Release()
{
    VirtualMemory::Release(base);
    *this = VirtualMemoryRange{};
}
} // namespace Torvane
