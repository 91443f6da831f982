#pragma once

/// \file
/// Restarts hosts; for the thread that waits on the session's link. Limits are in milliseconds.

#include "bridge/Message.h"
#include "bridge/Result.h"
#include "bridge/Session.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// What a process was started with.
struct LaunchInfo
{
    std::wstring executablePath;
    std::wstring commandLine;
    std::wstring currentDirectory;

    /// UTF-16, each variable with its terminator, up to the end of the block's pages. Empty if the Blob has none.
    std::vector<uint8_t> environment;
};

LaunchInfo ReadLaunchInfo(const Received<RestartBlob>& restart);

/// Sends `RequestRestart` and waits for the host's consent. Refused while the host's threads are suspended.
/// \return the Blob that `CompleteRestart` and `ReadLaunchInfo` need. The host waits for `CompleteRestart`.
Result<Received<RestartBlob>> RequestRestart(Session& session, uint32_t milliseconds);

/// Lets the host end, waits until it has, and starts its successor like it.
/// \param milliseconds for the end of the host. \return the id of the new process.
Result<uint32_t> CompleteRestart(Session& session, const Received<RestartBlob>& restart,
                                 uint32_t milliseconds);

/// Starts a process with the executable, command line, folder and environment of another. It inherits no handles; an
/// empty environment stands for the Bridge's own.
/// \return its id.
Result<uint32_t> Launch(const LaunchInfo& info);
} // namespace Torvane::Bridge
