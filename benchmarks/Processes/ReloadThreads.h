#pragma once

/// \file
/// The threads of a host that is reloaded: half of them wait, half of them work for some microseconds in each
/// millisecond. For the main thread.

#include <stdint.h>

#include <vector>

#include <windows.h>

namespace Torvane::Benchmarks
{
class ReloadThreads
{
public:
    /// \param functions what the working threads call (see `Reloads.h`).
    explicit ReloadThreads(const uint8_t* functions);

    /// \param count of all threads, this one included.
    void SetCount(uint32_t count);

    /// Returns when all working threads work, or when all of them wait.
    void SetAtWork(bool atWork);

private:
    static unsigned __stdcall WaitForEnd(void* threads);
    static unsigned __stdcall Work(void* threads);
    void CallFunctions() const;

    const uint8_t* functions;
    std::vector<HANDLE> threads;
    HANDLE gate;  ///< open while they work
    HANDLE ended; ///< the threads are to end
    volatile LONG isAtWork = 0;
    volatile LONG parked = 0; ///< working threads that wait at the gate
    LONG workers = 0;
};
} // namespace Torvane::Benchmarks
