#pragma once

/// \file
/// Semaphores of the OS, as bare handles. Any thread.

#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// \param name for the failure's message alone: the OS's object has no name.
Result<HANDLE> CreateSemaphoreObject(int32_t initialCount, int32_t maximumCount, const char* name);

/// Waits without a limit. \return a success with the value false for a wait result that the OS doesn't document.
Result<bool> WaitForSemaphore(HANDLE semaphore);

/// Raises the count by one.
Result<bool> SignalSemaphore(HANDLE semaphore);
} // namespace Torvane
