#pragma once

/// \file
/// Requests that wait for the Agent's reply; for the thread that waits on the link. The link's handlers are called meanwhile.
/// Limits are in milliseconds.

#include "bridge/Link.h"
#include "bridge/RemoteAddress.h"
#include "bridge/Result.h"

#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
/// Sends an `EchoRequest` and waits for its reply: everything sent before has been executed then, and what it has been
/// replied is in the inbox. Replies to other echoes are removed from the inbox.
Result<> Fence(Link& link, uint32_t milliseconds);

/// Reads memory of the Agent's process, after everything that was sent before. An Agent doesn't survive a read of memory
/// that can't be read, so such an address is refused. (`HostProcess::Read` reads at once, and without the Agent.)
Result<std::vector<uint8_t>> ReadMemory(Link& link, RemoteAddress address, uint32_t size,
                                        uint32_t milliseconds);

/// The same for elements of one size; they are returned back to back.
Result<std::vector<uint8_t>> ReadElements(Link& link, uint32_t elementSize,
                                          const std::vector<RemoteAddress>& addresses, uint32_t milliseconds);
} // namespace Torvane::Bridge
