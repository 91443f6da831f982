#pragma once

/// \file
/// Suspends the threads of the Agent's process; each object belongs to one thread.

#include "bridge/RemoteAddress.h"
#include "bridge/Result.h"

#include <optional>
#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
struct GuardedThread;

/// A part of another process's memory.
struct RemoteRange
{
    RemoteAddress base;
    uint32_t size; ///< bytes
};

/// Suspends all threads of another process but some.
///
/// A suspended thread may own any lock of its process. The Agent's own threads, which `AgentThreads` lists, have to be
/// excluded. If this process ends while threads are suspended, by a crash for example, they are resumed: a second process
/// of the same program (`ThreadGuard.h`) waits for its end from the first suspension on.
class ThreadSuspender
{
public:
    /// \param excluded ids of the threads that continue to run.
    ThreadSuspender(uint32_t processId, std::vector<uint32_t> excluded);

    /// Resumes the suspended threads.
    ~ThreadSuspender();
    ThreadSuspender(const ThreadSuspender&) = delete;
    ThreadSuspender& operator=(const ThreadSuspender&) = delete;

    /// Suspends every other thread, those that were created meanwhile included, until the process has no further one.
    /// On return each suspension is complete: the OS only begins it in `SuspendThread`. Fails if a thread can't be
    /// suspended, or if the process creates threads all the time; all of them run then.
    Result<> Suspend();

    /// Resumes each suspended thread that is inside of one of the ranges briefly, until none is.
    ///
    /// A thread is inside if its instruction pointer is, or a return address near the top of its stack: it executes a
    /// function of an image, or one of the OS that the image has called, and may own one of the image's locks. Called
    /// with the Agent's image, this keeps the Agent's own threads from waiting for a suspended one. A thread that makes
    /// no progress while it runs is in a wait. Such a thread owns none of these locks and stays suspended where it is.
    /// \return how often a thread was resumed.
    uint32_t RunUntilOutside(const std::vector<RemoteRange>& ranges);

    /// The same for one range.
    uint32_t RunUntilOutside(RemoteAddress image, uint32_t size)
    {
        return RunUntilOutside({{image, size}});
    }

    /// Resumes all suspended threads.
    void Resume();

    /// Executes `ResumeHeldThreads`: resumes all suspended threads until `SuspendAfterLoad`.
    void ResumeForLoad();

    /// Executes `SuspendHeldThreads`: suspends the threads again that `ResumeForLoad` has resumed. The Agent's watchdog
    /// sends that beside `PatchLoaded` and can be late: nothing is suspended if `Resume` was called meanwhile.
    Result<> SuspendAfterLoad();

    /// How many threads are suspended.
    uint32_t Count() const
    {
        return static_cast<uint32_t>(threads.size());
    }

    /// Whether the instruction pointer of a suspended thread is in one of the ranges. True if one can't be read.
    bool AnyAt(const std::vector<RemoteRange>& ranges) const;

    bool AnyAt(RemoteAddress address, uint32_t size) const
    {
        return AnyAt({{address, size}});
    }

private:
    struct Thread
    {
        uint32_t id;
        void* handle;
        GuardedThread* guarded;
    };

    bool IsSuspendedOrExcluded(uint32_t id) const;
    bool IsInside(const Thread& thread, const std::vector<RemoteRange>& sortedRanges) const;

    /// \return whether one of the threads has made progress.
    bool RunBriefly(const std::vector<Thread>& running);

    /// What a look at all threads has led to.
    struct Round
    {
        uint32_t added = 0;
        std::optional<Failure> failure; ///< of a thread that couldn't be suspended: it may be ending
    };
    Round SuspendNewThreads();
    Result<> SuspendOne(uint32_t id);

    /// Waits until all suspensions are complete. A thread can't stop while it needs what a suspended one owns: in Wine,
    /// a lock of the C library at the thread's end, or its own start by the thread that creates it. So if it takes
    /// long, all threads run until each has stopped once, and are suspended again.
    void WaitUntilStopped();
    static unsigned __stdcall ReadPositions(void* suspender);

    uint32_t processId;
    void* process;
    std::vector<uint32_t> excluded;
    std::vector<Thread> threads;
    bool resumedForLoad = false;
};

/// The Agent's own four threads, which a Bridge mustn't suspend.
std::vector<uint32_t> AgentThreads(const RegisterProcessBlob& process);
} // namespace Torvane::Bridge
