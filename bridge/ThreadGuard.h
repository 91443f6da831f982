#pragma once

/// \file
/// Resumes the threads that this process has suspended when it ends without having done it; any thread.
///
/// A process of the same program, the guard, waits for the end of this one. It is started with arguments of its own and is
/// recognized by them before `main`. A section that both share has the threads: a crashed or terminated process leaves it
/// as it was. The OS itself resumes nothing, and a job object could only end processes.

#include "bridge/Result.h"

#include <stdint.h>

namespace Torvane::Bridge
{
/// Entries that are in use name a thread that may be suspended.
struct GuardedThread
{
    volatile uint32_t processId;
    volatile uint32_t threadId; ///< 0 in an entry that isn't in use
};

/// Starts the guard unless it runs already.
Result<> StartThreadGuard();

/// To be called before a thread is suspended. \return null if there are too many, or no guard was started.
GuardedThread* GuardThread(uint32_t processId, uint32_t threadId);

/// To be called after the thread was resumed.
void ReleaseThread(GuardedThread* thread);
} // namespace Torvane::Bridge
