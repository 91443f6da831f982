#pragma once

/// \file
/// The same random numbers in every run (xorshift). One thread at a time.

#include <stdint.h>

namespace Torvane::Benchmarks
{
class Random
{
public:
    explicit Random(uint32_t seed = 2463534242)
        : state(seed)
    {
    }

    /// \return less than `end`, which is at most 2^24.
    uint32_t Below(uint32_t end)
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return (state >> 8) % end;
    }

private:
    uint32_t state;
};
} // namespace Torvane::Benchmarks
