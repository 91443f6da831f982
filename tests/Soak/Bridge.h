#pragma once

/// \file
/// What the Bridge of the soak's hosts does, until the Agent closes the link; for the main thread.

#include "bridge/Bridge.h"
#include "tests/Soak/Board.h"

namespace Torvane::Soak
{
constexpr uint32_t connectLimit = 30000; ///< milliseconds
constexpr uint32_t limit = 20000;        ///< of each wait for Agent or host, in milliseconds

/// Checks every item that the host's threads send, acknowledges modules, decides on exceptions, and reads the host's memory
/// meanwhile.
void Serve(Bridge::Link& link, const Board& board);

/// Loads, uses and unloads one patch after the other.
void ReloadAllTheTime(Bridge::Link& link, const Board& board, const RegisterAgentBlob& agent,
                      const RegisterProcessBlob& process);
} // namespace Torvane::Soak
