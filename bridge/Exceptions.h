#pragma once

/// \file
/// Decides on exceptions of the host's threads; for the thread that waits on the session's link.

#include "bridge/Message.h"
#include "bridge/RemoteAddress.h"
#include "bridge/Session.h"

#include <functional>
#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
/// What an Agent reports about an exception. The thread that has raised it waits for the decision.
struct ReportedException
{
    uint32_t threadId;
    uint32_t code;
    RemoteAddress address; ///< of the instruction
    std::vector<uint32_t>
        parameters; ///< of an access violation: 0 read, 1 write or 8 execute, and the address accessed
    std::vector<uint8_t> context; ///< the thread's `WOW64_CONTEXT`
};

/// What an Agent reports; zeros where the Blob has no record.
ReportedException ReadException(const Received<HandleExceptionWindowsBlob>& report);

struct ExceptionDecision
{
    uint32_t action;                ///< `ActionContinueSearch` and the others of `Blob.h`
    ResumeRecord resumeRecord = {}; ///< for `ActionResumeAtFrame`
};

/// Where the Agent's handler is among those of the host.
enum class HandlerPlace : uint32_t
{
    Last = 0,
    First = 1,
};

/// Installs the Agent's exception handler and has `decide` called for each exception from now on, by each wait of the
/// link: also in the middle of a reload. To be called once for a host.
Result<> ServeExceptions(Session& session, HandlerPlace place,
                         std::function<ExceptionDecision(const ReportedException&)> decide,
                         uint32_t milliseconds);
} // namespace Torvane::Bridge
