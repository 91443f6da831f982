#pragma once

/// \file
/// The vectored exception handler: lets the Broker decide what becomes of a thread of the host that faulted.

#include "Agent/Protocol/Blob.h"

#include <windows.h>

namespace Torvane
{
/// Registers the handler with the OS, first or last among those of the process. Receiver thread. A second call is not
/// guarded against: it makes the lock anew, and the first registration stays permanently.
void InstallExceptionHandler(const InstallExceptionHandlerBlob& blob);

/// Removes the handler of the latest `InstallExceptionHandler`, if there was one. Host's thread, at shutdown.
void RemoveExceptionHandler();

/// Stores the Bridge's decision in the frame of the thread that waits for it, and releases that thread. Receiver thread.
void PassOnDecision(const HandleExceptionWindowsResultBlob& blob);

/// While it lives the handler declines every exception of every thread. Does nothing if no handler is installed when it
/// is created. Receiver thread.
class ScopedExceptionHandlerSuspension
{
public:
    ScopedExceptionHandlerSuspension();
    ~ScopedExceptionHandlerSuspension();
    ScopedExceptionHandlerSuspension(const ScopedExceptionHandlerSuspension&) = delete;
    ScopedExceptionHandlerSuspension& operator=(const ScopedExceptionHandlerSuspension&) = delete;

private:
    bool suspended;
};

/// The handler itself; the OS calls it on the thread that faulted, whichever that is.
///
/// Codes that `IsKnownExceptionCode` doesn't know pass at once, without a lock or a log line. For the others, one
/// thread after the other: logs what happened, sends `HandleExceptionWindows`, waits without a limit for the answer,
/// which the receiver thread stores in this function's frame, and acts on it when the lock has been left. A stack
/// overflow is reported without a log line, since the logger needs stack. On each way out the thread's last error and its
/// floating-point state are what they were.
/// \return `EXCEPTION_CONTINUE_SEARCH` or `EXCEPTION_CONTINUE_EXECUTION`.
LONG CALLBACK ExceptionFilter(EXCEPTION_POINTERS* exception);
} // namespace Torvane
