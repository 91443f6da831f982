#pragma once

/// \file
/// The lock of the process's default heap; any thread, after `StartupWindowsInternalAPI`.

namespace Torvane
{
/// Finds the critical section of the default heap. It doesn't move as long as the process lives.
///
/// Holds the heap's lock meanwhile, which proves a candidate: the section has to be owned by this thread, once and with
/// nobody waiting. If the thread holds the lock already, or another one waits for it at this moment, nothing is found. Logs "Found process heap critical section at 0x%p" at Debug level.
/// \return null after the Error line "Failed to find process heap critical section".
void* GetProcessHeapLock();

/// The search itself, in the header of a heap whose lock the calling thread holds. Tries the two places where 32-bit
/// versions of the OS keep the pointer, 0xC8 and 0xCC bytes from the start. Addresses that can't be read are no fault:
/// each failed read logs "Call to function NtReadVirtualMemory failed. Error: 0x%X" at Error level.
void* FindHeapLock(const void* heap);
} // namespace Torvane
