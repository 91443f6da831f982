#pragma once

/// \file
/// A block of memory with its size. Plain data.

#include <stdint.h>

namespace Torvane
{
/// What an allocator returns and a block's owner keeps: blocks have no header, so the same size has to come back.
struct Allocation
{
    void* pointer;
    uint32_t size; ///< bytes, as asked for
};
} // namespace Torvane
