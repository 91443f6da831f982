#pragma once

/// \file
/// Waiting for a client of a named pipe, with a time-out. Any thread.

#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// Blocks until a client has connected to `pipe`, which isn't overlapped, at most `milliseconds`. A second thread cancels
/// the call when the time is up; it has ended when this returns.
/// \return a failure "ConnectNamedPipe failed.", with the code 995 after the time-out.
Result<bool> WaitForPipeClient(HANDLE pipe, uint32_t milliseconds);
} // namespace Torvane
