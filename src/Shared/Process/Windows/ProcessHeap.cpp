#include "Shared/Process/Windows/ProcessHeap.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessMemory.h"

#include <stdint.h>
#include <string.h>
#include <windows.h>

namespace Torvane
{
namespace
{
static_assert(sizeof(RTL_CRITICAL_SECTION) == 24);

/// Where versions of the OS keep the pointer in a 32-bit heap's header, which isn't documented.
constexpr uint32_t firstLockOffset = 0xC8;
constexpr uint32_t secondLockOffset = 0xCC;

/// `LockCount` of a critical section that is taken and that nobody waits for.
constexpr LONG lockedWithoutWaiters = -2;

bool IsHeldOnceByThisThread(const RTL_CRITICAL_SECTION& section)
{
    const DWORD owner = static_cast<DWORD>(reinterpret_cast<uintptr_t>(section.OwningThread));
    return owner == GetCurrentThreadId() && section.RecursionCount == 1 &&
           section.LockCount == lockedWithoutWaiters;
}

/// \return null if the word at the offset is no pointer to the heap's lock.
void* TryOffset(const void* heap, uint32_t offset)
{
    uint8_t header[secondLockOffset + sizeof(uint32_t)] = {};
    if (!ReadProcessBytes(GetCurrentProcess(), heap, header, offset + sizeof(uint32_t)))
    {
        return nullptr;
    }
    const void* candidate = nullptr;
    memcpy(&candidate, header + offset, sizeof(candidate));
    RTL_CRITICAL_SECTION section = {};
    if (!ReadProcessBytes(GetCurrentProcess(), candidate, &section, sizeof(section)) ||
        !IsHeldOnceByThisThread(section))
    {
        return nullptr;
    }
    void* lock = *reinterpret_cast<void* const*>(static_cast<const uint8_t*>(heap) + offset);
    if (lock != nullptr)
    {
        LogDebug(TVN_HERE, "Found process heap critical section at 0x%p", lock);
    }
    return lock;
}
} // namespace

void* FindHeapLock(const void* heap)
{
    void* lock = TryOffset(heap, firstLockOffset);
    if (lock == nullptr)
    {
        lock = TryOffset(heap, secondLockOffset);
    }
    if (lock == nullptr)
    {
        LogError(TVN_HERE, "Failed to find process heap critical section");
    }
    return lock;
}

void* GetProcessHeapLock()
{
    const HANDLE heap = GetProcessHeap();
    HeapLock(heap);
    void* lock = FindHeapLock(heap);
    HeapUnlock(heap);
    return lock;
}
} // namespace Torvane
