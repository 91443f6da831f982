#pragma once

/// \file
/// Holding the threads of the Agent's process from outside; each object belongs to one thread.

#include "Agent/Communication/Blob.h"

#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
/// Holds all threads of a process but some.
///
/// A held thread may own any lock of its process. Those that the Agent works with must not be held: they are
/// named in `RegisterProcess`, and `AgentThreads` lists them.
class HeldThreads
{
public:
    /// \param spared ids of threads to be left running.
    HeldThreads(uint32_t processId, std::vector<uint32_t> spared);

    /// Resumes what is held.
    ~HeldThreads();
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

    /// Suspends every other thread, and again those that came into being meanwhile, until a look at the process
    /// shows no new one. On return each held thread has stopped: nothing of it runs any more.
    void Hold();

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

    bool IsHeldOrSpared(uint32_t id) const;

    /// \return how many threads were added.
    uint32_t HoldNewThreads();

    uint32_t processId;
    std::vector<uint32_t> spared;
    std::vector<Thread> threads;
};

/// The four threads of the Agent that must go on running.
std::vector<uint32_t> AgentThreads(const RegisterProcessBlob& process);
} // namespace Torvane::Bridge
