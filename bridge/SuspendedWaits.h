#pragma once

/// \file
/// Waiting for an Agent while its host's threads are held; for the thread that holds them.
///
/// Some of what the Agent does for its Bridge needs locks that a held thread can own: the loader's, a heap's. Only the
/// load of a patch is guarded by the Agent's watchdog. For all else it is the Bridge that has to notice that nothing
/// comes, and to let the held threads run until they have given back what they own.

#include "bridge/Link.h"
#include "bridge/ThreadSuspender.h"

#include <vector>

namespace Torvane::Bridge
{
/// Waits for a Blob of one of these types. Meanwhile obeys `ResumeHeldThreads` and `SuspendHeldThreads`, and lets the
/// threads run for a moment whenever nothing has come for a while. They are held when it returns, unless the
/// watchdog has asked for them and its `SuspendHeldThreads` is still to come.
/// \return an empty message after the limit, in milliseconds.
Message ReceiveWhileSuspended(Link& link, ThreadSuspender& threads, std::vector<BlobType> types,
                              uint32_t milliseconds);

/// As `WaitUntilExecuted`, with the same care.
bool WaitUntilExecutedWhileSuspended(Link& link, ThreadSuspender& threads, uint32_t milliseconds);
} // namespace Torvane::Bridge
