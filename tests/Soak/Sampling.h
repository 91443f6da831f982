#pragma once

/// \file
/// Counts what this process uses, as the OS and the Agent's own heaps have it. Any thread.

#include <stdint.h>

#include <string>

#include <windows.h>

namespace Torvane::Soak
{
struct Sample
{
    double time = 0; ///< seconds
    uint32_t handles = 0;
    uint32_t threads = 0;
    uint64_t privateBytes = 0;
    uint64_t addressSpace = 0; ///< bytes that are committed or reserved
    uint64_t logBytes = 0;
    int blocks = -1; ///< that the Agent has in use; -1 without an Agent
};

/// The Agent's blocks in use: those of its pools and those of its heap of large blocks.
///
/// The library doesn't export them. Its pools are found by their contents in its writable memory: 128 in a row, the
/// sizes ascending by 8. A pool has what its chunks were cut into, less the free list, which is counted under the pool's
/// own lock. Large blocks are the busy ones of the other heap that appeared during the startup.
class AgentBlocks
{
public:
    /// Notes the heaps that there are. To be created before the Agent starts.
    AgentBlocks();

    /// To be called after the startup. \return whether the pools and both heaps were found.
    bool Find(const void* library);

    /// -1 if they weren't found.
    int Count() const;

private:
    HANDLE heapsBefore[64];
    DWORD countBefore;
    const uint8_t* pools = nullptr;
    HANDLE largeHeap = nullptr;
};

/// Seconds.
double Now();

Sample TakeSample(const AgentBlocks& blocks, const std::wstring& logPath);
} // namespace Torvane::Soak
