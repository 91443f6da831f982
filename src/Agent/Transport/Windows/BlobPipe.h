#pragma once

/// \file
/// One of the two named pipes to the Bridge, with synchronous I/O. Each end has one reader or writer; any thread may
/// disconnect it.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// Creates a message pipe. Owned by the caller.
/// \param prefix of the pipe's name; the identifier completes it.
Result<HANDLE> CreateBlobPipe(const wchar_t* prefix, const FixedWideString& identifier);

/// Waits until the Bridge has read what was written, without a limit, and ends the connection.
void FlushAndDisconnect(HANDLE pipe);

/// Closes the handle and makes the variable the invalid handle value.
void ClosePipe(HANDLE& pipe);

/// Writes all bytes. \return how many, or the failure "WriteFile() failed.".
Result<uint32_t> WriteExact(HANDLE pipe, const void* bytes, uint32_t size);

/// Reads exactly `size` bytes, which needn't be whole messages. \return how many, or the failure "ReadFile() failed.".
Result<uint32_t> ReadExact(HANDLE pipe, void* buffer, uint32_t size);

/// Whether an error code of a pipe operation says no more than that the link has ended: the Bridge has gone, shutdown has
/// disconnected the pipe, or shutdown has cancelled the operation.
constexpr bool IsOrdinaryEndOfLink(uint32_t code)
{
    return code == ERROR_BROKEN_PIPE || code == ERROR_PIPE_NOT_CONNECTED || code == ERROR_OPERATION_ABORTED;
}
} // namespace Torvane
