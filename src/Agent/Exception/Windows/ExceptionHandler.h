#pragma once

/// \file
/// The vectored exception handler: lets the Broker decide what becomes of a thread of the host that faulted.

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
/// Registers the handler with the OS. Receiver thread. A second call is not guarded against: it makes the lock anew,
/// and the first registration is left alone for good.
/// \param order nonzero for the first place among the handlers of the process, 0 for the last.
void InstallExceptionHandler(uint32_t order);

/// Takes the handler of the latest `InstallExceptionHandler` away, if there was one. Host's thread, at shutdown.
void RemoveExceptionHandler();

/// Between these two the handler declines every exception of every thread. Receiver thread. Neither does anything
/// while no handler is installed.
void SuspendExceptionHandler();
void UnsuspendExceptionHandler();

/// The handler itself; the OS calls it on the thread that faulted, whichever that is.
///
/// Codes that `IsKnownExceptionCode` doesn't know pass at once, without a lock or a log line. For the others, one
/// thread after the other: logs what happened, sends `HandleExceptionWindows`, waits without a limit for the answer,
/// which the receiver thread stores in this function's frame, and acts on it when the lock has been left. A stack
/// overflow is reported without a log line, since the logger needs stack.
/// \return `EXCEPTION_CONTINUE_SEARCH` or `EXCEPTION_CONTINUE_EXECUTION`.
LONG CALLBACK ExceptionFilter(EXCEPTION_POINTERS* exception);
} // namespace Torvane
