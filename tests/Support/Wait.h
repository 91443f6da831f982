#pragma once

/// \file
/// Limits of the waits in tests, and waiting on a condition; any thread.

#include <stdint.h>

#include <windows.h>

namespace Torvane::Testing
{
/// How long a condition may take to become true, in milliseconds. Generous: it only passes when a test fails.
constexpr uint32_t testTimeout = 30000;

/// How long a test watches for what must not happen, in milliseconds.
constexpr uint32_t quietPeriod = 50;

/// Milliseconds between two evaluations of a condition.
constexpr uint32_t pollInterval = 5;

/// Waits for a condition that another thread or process brings about. \return whether it became true in time.
template<typename Condition>
bool WaitUntil(Condition condition, uint32_t milliseconds = testTimeout)
{
    const ULONGLONG end = GetTickCount64() + milliseconds;
    while (!condition())
    {
        if (GetTickCount64() >= end)
        {
            return false;
        }
        Sleep(pollInterval);
    }
    return true;
}
} // namespace Torvane::Testing
