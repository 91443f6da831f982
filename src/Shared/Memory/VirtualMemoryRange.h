#pragma once

/// \file
/// A reservation of address space that is committed as it fills, and so never moves. One thread at a time.

#include <stddef.h>
#include <stdint.h>

namespace Torvane
{
/// Committed are the bytes from `base` to `committedEnd`, which is at most `end`.
struct VirtualMemoryRange
{
    uint8_t* base;
    uint8_t* end;
    uint8_t* committedEnd;

    /// Reserves `maximumSize` bytes, raised to whole pages. Nothing is committed. After a failure the range is empty.
    void Reserve(size_t maximumSize);

    /// Commits what is missing to `bytes`. \return false after an Error line; the range is unchanged.
    bool Ensure(size_t bytes);

    /// Releases the whole reservation.
    void Release();
};
} // namespace Torvane
