#pragma once

/// \file
/// Starts the new process of a restart; any thread.

#include "bridge/Message.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// The process to be restarted, as its `Restart` Blob describes it.
struct LaunchInfo
{
    std::wstring executablePath;
    std::wstring commandLine;
    std::wstring currentDirectory;
    std::vector<uint8_t>
        environment; ///< UTF-16, each variable with its terminator; empty if the Blob has none
};

LaunchInfo ReadLaunchInfo(const Received<RestartBlob>& restart);

/// Waits until the process has ended. \return false after the limit, in milliseconds.
bool WaitForProcessEnd(uint32_t processId, uint32_t milliseconds);

/// Starts a process with the executable, command line, folder and environment of another. It inherits no handles; an
/// empty environment stands for the Bridge's own.
/// \return its id; 0 on failure, see `GetLastError`.
uint32_t Launch(const LaunchInfo& image);
} // namespace Torvane::Bridge
