#pragma once

/// \file
/// A Bridge without a Broker, which accepts whatever a host requests; to be called once, by the main thread.

#include <stdint.h>

namespace Torvane::Bridge
{
/// Connects, exchanges versions, and then, until the Agent closes the pipe: acknowledges enabled modules, accepts every
/// requested reload and restart, and completes it at once. If `FolderToWatch` isn't empty, it also loads the patches
/// that appear there (`WatchFolder`).
/// \return 0; 1 if the Agent couldn't be reached within 10 seconds; 2 if it has another version.
int RunDefaultBridge(uint32_t hostProcessId);
} // namespace Torvane::Bridge
