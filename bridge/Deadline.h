#pragma once

/// \file
/// The end of a time limit; a value type, any thread.

#include <algorithm>
#include <stdint.h>

#include <windows.h>

namespace Torvane::Bridge
{
class Deadline
{
public:
    explicit Deadline(uint32_t milliseconds)
        : end(GetTickCount64() + milliseconds)
    {
    }

    /// Milliseconds, 0 after the end.
    uint32_t Remaining() const
    {
        const ULONGLONG now = GetTickCount64();
        return now >= end ? 0 : static_cast<uint32_t>(std::min<ULONGLONG>(end - now, INFINITE));
    }

private:
    ULONGLONG end;
};
} // namespace Torvane::Bridge
