#pragma once

/// \file
/// Whether the process's heap has its lock where the Agent looks for it; any thread.

#include <stdint.h>

#include <windows.h>

namespace Torvane::Testing
{
/// What the word at that place of a heap's header points to, if it is a critical section that this thread has entered
/// once and that nobody waits for.
inline void* HeldSectionAt(const void* heap, uint32_t offset)
{
    constexpr LONG lockedWithoutWaiters = -2;
    void* candidate = *reinterpret_cast<void* const*>(static_cast<const uint8_t*>(heap) + offset);
    RTL_CRITICAL_SECTION section = {};
    SIZE_T read = 0;
    const bool held = ReadProcessMemory(GetCurrentProcess(), candidate, &section, sizeof(section), &read) &&
                      reinterpret_cast<uintptr_t>(section.OwningThread) == GetCurrentThreadId() &&
                      section.RecursionCount == 1 && section.LockCount == lockedWithoutWaiters;
    return held ? candidate : nullptr;
}

/// The lock of the process's heap by a look of our own, so that a test knows what the Agent has to find; null if the
/// OS has it elsewhere.
inline void* LockOfProcessHeap()
{
    const HANDLE heap = GetProcessHeap();
    HeapLock(heap);
    void* lock = HeldSectionAt(heap, 0xC8);
    if (lock == nullptr)
    {
        lock = HeldSectionAt(heap, 0xCC);
    }
    HeapUnlock(heap);
    return lock;
}
} // namespace Torvane::Testing
