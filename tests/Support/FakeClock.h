#pragma once

/// \file
/// A performance counter with the value that a test gives it.

#include "Shared/Foundation/Windows/Clock.h"
#include "tests/Support/FakeImport.h"

#include <stdint.h>

namespace Torvane::Testing
{
/// As long as it lives, the counter has this value and frequency, and the origin of time is at 0. Afterwards the origin
/// is now.
class FakeClock
{
public:
    FakeClock(int64_t counterValue, int64_t countsPerSecond)
        : counter(0)
        , frequency(countsPerSecond)
    {
        SetTimeOrigin();
        counter = counterValue;
    }

    ~FakeClock()
    {
        passOn = true;
        SetTimeOrigin();
    }

    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    void Set(int64_t counterValue)
    {
        counter = counterValue;
    }

    void SetFrequency(int64_t countsPerSecond)
    {
        frequency = countsPerSecond;
    }

    uint32_t GetCounterReads() const
    {
        return counterReads;
    }

    uint32_t GetFrequencyReads() const
    {
        return frequencyReads;
    }

private:
    struct Counter
    {
        FakeClock& clock;

        BOOL operator()(decltype(&QueryPerformanceCounter) real, LARGE_INTEGER* value) const
        {
            if (clock.passOn)
            {
                return real(value);
            }
            ++clock.counterReads;
            value->QuadPart = clock.counter;
            return TRUE;
        }
    };

    struct Frequency
    {
        FakeClock& clock;

        BOOL operator()(decltype(&QueryPerformanceFrequency), LARGE_INTEGER* value) const
        {
            ++clock.frequencyReads;
            value->QuadPart = clock.frequency;
            return TRUE;
        }
    };

    int64_t counter;
    int64_t frequency;
    bool passOn = false;
    uint32_t counterReads = 0;
    uint32_t frequencyReads = 0;
    FakeImport<Counter> counterImport{"QueryPerformanceCounter", Counter{*this}};
    FakeImport<Frequency> frequencyImport{"QueryPerformanceFrequency", Frequency{*this}};
};
} // namespace Torvane::Testing
