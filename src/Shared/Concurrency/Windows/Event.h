#pragma once

/// \file
/// A manual-reset event of the OS. Any thread.

#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// A bare handle, the invalid one while there is no event. Waits log their failures at Error level; a finite time-out
/// that expires isn't one.
struct Event
{
    HANDLE handle;

    /// \param name is for the failure's message only: the OS object has none.
    static Result<HANDLE> Create(const char* name);

    void Destroy();
    void Signal();
    void Reset();

    /// Each waits and tells whether the event is signalled: without a limit, for some milliseconds, and not at all.
    bool Wait();
    bool Wait(uint32_t milliseconds);
    bool TryWait();
};
} // namespace Torvane
