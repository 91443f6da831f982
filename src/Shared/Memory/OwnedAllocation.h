#pragma once

/// \file
/// The owner of one block of memory. Any thread, one at a time.

#include "Shared/Memory/MemorySystem.h"

namespace Torvane
{
/// Owns a block of the memory system, or none, and frees it at its end. Can be moved and not copied.
class OwnedAllocation
{
public:
    OwnedAllocation() = default;

    /// Takes over a block.
    explicit OwnedAllocation(const Allocation& owned)
        : block(owned)
    {
    }

    OwnedAllocation(OwnedAllocation&& other) noexcept
        : block(other.Release())
    {
    }

    OwnedAllocation& operator=(OwnedAllocation&& other) noexcept
    {
        const Allocation taken = other.Release();
        Reset();
        block = taken;
        return *this;
    }

    ~OwnedAllocation()
    {
        Reset();
    }

    /// The block, which stays owned; a null pointer if there is none.
    const Allocation& Get() const
    {
        return block;
    }

    /// Hands the block over to the caller.
    Allocation Release()
    {
        const Allocation released = block;
        block = {};
        return released;
    }

private:
    void Reset()
    {
        if (block.pointer != nullptr)
        {
            Free(block);
        }
    }

    Allocation block = {};
};
} // namespace Torvane
