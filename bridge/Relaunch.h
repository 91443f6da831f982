#pragma once

/// \file
/// The second half of a restart: the new process. Any thread.

#include "bridge/Message.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// What a `Restart` Blob says of the process that wants to go.
struct ProcessImage
{
    std::wstring executablePath;
    std::wstring commandLine;
    std::wstring currentDirectory;
    std::vector<uint8_t>
        environment; ///< UTF-16, each variable with its terminator; empty if it wasn't handed over
};

ProcessImage ReadProcessImage(const Received<RestartBlob>& restart);

/// Waits until the process has ended. \return false after the limit, in milliseconds.
bool WaitForProcessEnd(uint32_t processId, uint32_t milliseconds);

/// Starts a process that is like the one that has gone. It inherits no handles; with an empty environment it gets the
/// Bridge's own.
/// \return its id; 0 on failure, with the OS's error in GetLastError.
uint32_t StartLike(const ProcessImage& image);
} // namespace Torvane::Bridge
