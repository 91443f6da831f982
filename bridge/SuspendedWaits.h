#pragma once

/// \file
/// Waits for an Agent while its host's threads are suspended; for the thread that owns the `ThreadSuspender`.
///
/// Some commands need locks that a suspended thread can own: the loader's, a heap's. The Agent's watchdog guards the load
/// of a patch only. For other commands the Bridge has to detect that no reply arrives, and to resume the threads until
/// they have released their locks.

#include "bridge/Link.h"
#include "bridge/ThreadSuspender.h"

#include <vector>

namespace Torvane::Bridge
{
/// Waits for a Blob of one of these types. Meanwhile executes `ResumeHeldThreads` and `SuspendHeldThreads`, and resumes the
/// threads briefly whenever nothing has arrived for a second. They are suspended when it returns, unless the watchdog has
/// sent `ResumeHeldThreads` and its `SuspendHeldThreads` hasn't arrived yet.
/// \return an empty message after the limit, in milliseconds.
Message ReceiveWhileSuspended(Link& link, ThreadSuspender& threads, std::vector<BlobType> types,
                              uint32_t milliseconds);

/// `Fence` for suspended threads: receives as `ReceiveWhileSuspended` does.
bool FenceWhileSuspended(Link& link, ThreadSuspender& threads, uint32_t milliseconds);
} // namespace Torvane::Bridge
