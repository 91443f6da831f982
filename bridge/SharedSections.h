#pragma once

/// \file
/// Reads the two shared memory sections of an Agent; each object belongs to one thread.

#include <stdint.h>
#include <vector>

namespace Torvane::Bridge
{
/// A named section and the named mutex that guards it, created if they don't exist.
class SharedSection
{
public:
    /// The process id is appended to `name` and `mutexName`. \param size in bytes.
    SharedSection(const wchar_t* name, const wchar_t* mutexName, uint32_t size, uint32_t hostProcessId);
    ~SharedSection();
    SharedSection(const SharedSection&) = delete;
    SharedSection& operator=(const SharedSection&) = delete;

    /// Whether both could be opened.
    explicit operator bool() const
    {
        return view != nullptr && mutex != nullptr;
    }

    /// A copy of [offset, offset + size), made while the mutex is owned. Waits for the mutex without a limit.
    std::vector<uint8_t> Read(uint32_t offset, uint32_t size) const;

private:
    void* mapping;
    void* mutex;
    const uint8_t* view = nullptr;
};

/// The heartbeat: the Agent writes the time to this section 100 times a second.
class Heartbeat
{
public:
    explicit Heartbeat(uint32_t hostProcessId);

    explicit operator bool() const
    {
        return static_cast<bool>(section);
    }

    /// The time of the last beat: 100-nanosecond units since 1601, UTC. 0 before the first one.
    uint64_t LastBeat() const;

private:
    SharedSection section;
};

/// The payload of `RegisterProjectPreferences` from the agent-bridge section, written before the Bridge is spawned.
/// Empty if the section can't be opened or contains no payload.
std::vector<uint8_t> ReadProjectPreferences(uint32_t hostProcessId);
} // namespace Torvane::Bridge
