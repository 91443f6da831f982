#pragma once

/// \file
/// The Bridge that has no Broker and nothing in mind; to be called once, by the main thread.

#include <stdint.h>

namespace Torvane::Bridge
{
/// Connects, exchanges versions, acknowledges enabled modules, grants every reload and restart that is asked for
/// and calls it done at once, until the Agent closes the pipe.
/// \return 0; 1 if the Agent couldn't be reached within 10 seconds; 2 if it has another version.
int RunDefaultBridge(uint32_t hostProcessId);
} // namespace Torvane::Bridge
