#pragma once

/// \file
/// Holding the threads of the Agent's process from outside; each object belongs to one thread.

#include "Agent/Protocol/Blob.h"

#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
/// Holds all threads of a process but some.
///
/// A held thread may own any lock of its process. Those that the Agent works with must not be held: they are
/// named in `RegisterProcess`, and `AgentThreads` lists them.
class ThreadSuspender
{
public:
    /// \param excluded ids of threads to be left running.
    ThreadSuspender(uint32_t processId, std::vector<uint32_t> excluded);

    /// Resumes what is held.
    ~ThreadSuspender();
    ThreadSuspender(const ThreadSuspender&) = delete;
    ThreadSuspender& operator=(const ThreadSuspender&) = delete;

    /// Suspends every other thread, and again those that came into being meanwhile, until a look at the process
    /// shows no new one. On return each held thread has stopped: nothing of it runs any more.
    void Suspend();

    /// Lets each held thread run on that stands in [image, image + size), and holds it again, until none does.
    ///
    /// A thread stands there if its instruction pointer does or if a return address near the top of its stack
    /// leads there: it is in a function of the image or in one of the OS's that it has called, and may own a lock
    /// of the image's. With the Agent's image this is what keeps the threads that the Bridge relies on from
    /// waiting for a held one. A thread that doesn't move while it may is in a wait. Those own no such lock, and
    /// stay held where they are.
    /// \return how often a thread was let run on.
    uint32_t RunUntilOutside(AddressSlot image, uint32_t size);

    /// Lets them all go on. Does nothing if none is held.
    void Resume();

    /// How many threads are held.
    uint32_t Count() const
    {
        return static_cast<uint32_t>(threads.size());
    }

    /// Whether the instruction pointer of a held thread lies in [address, address + size). A thread whose
    /// instruction pointer can't be read counts as being there.
    bool AnyAt(AddressSlot address, uint32_t size) const;

private:
    struct Thread
    {
        uint32_t id;
        void* handle;
    };

    bool IsSuspendedOrExcluded(uint32_t id) const;
    bool IsInside(const Thread& thread, AddressSlot image, uint32_t size) const;

    /// \return whether the thread stands elsewhere than before.
    bool RunBriefly(const Thread& thread) const;

    /// \return how many threads were added.
    uint32_t SuspendNewThreads();

    uint32_t processId;
    void* process;
    std::vector<uint32_t> excluded;
    std::vector<Thread> threads;
};

/// The four threads of the Agent that must go on running.
std::vector<uint32_t> AgentThreads(const RegisterProcessBlob& process);
} // namespace Torvane::Bridge
