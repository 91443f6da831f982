#pragma once

/// \file
/// How the ordinary end of the link to the Bridge looks; any thread.

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
/// Whether an OS error code of a pipe operation is one of the three that say no more than that the link has ended:
/// the Bridge has gone, shutdown has disconnected the pipe, or shutdown has cancelled the operation.
constexpr bool IsOrdinaryEndOfLink(uint32_t code)
{
    return code == ERROR_BROKEN_PIPE || code == ERROR_PIPE_NOT_CONNECTED || code == ERROR_OPERATION_ABORTED;
}
} // namespace Torvane
