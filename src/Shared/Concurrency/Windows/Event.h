#pragma once

/// \file
/// A manual-reset event of the OS. Any thread.

#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// A bare handle, the invalid one while there is no event. Failed waits log an Error line; a finite time-out that
/// expires is no failure.
struct Event
{
    HANDLE handle;

    /// \param name for the failure's message alone: the OS's object has no name.
    static Result<HANDLE> Create(const char* name);

    void Destroy();
    void Signal();
    void Reset();

    /// Waits until the event is signalled or the time is up. \return whether it is signalled.
    bool Wait(uint32_t milliseconds = INFINITE);

    /// \return whether the event is signalled, without waiting.
    bool TryWait();
};
} // namespace Torvane
