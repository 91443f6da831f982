#pragma once

/// \file
/// Chooses an allocator for each block, by its size alone. Any thread.

#include "Shared/Memory/Allocation.h"

namespace Torvane
{
/// \tparam Small and \tparam Large allocate and free like this class. Blocks of the threshold's size are small.
template<typename Small, typename Large>
class SegregatedAllocator
{
public:
    void Startup(uint32_t largestSmall, Small* smallAllocator, Large* largeAllocator)
    {
        threshold = largestSmall;
        small = smallAllocator;
        large = largeAllocator;
    }

    Allocation Allocate(uint32_t size)
    {
        return size > threshold ? large->Allocate(size) : small->Allocate(size);
    }

    void Free(void* pointer, uint32_t size)
    {
        if (size > threshold)
        {
            large->Free(pointer);
        }
        else
        {
            small->Free(pointer, size);
        }
    }

private:
    uint32_t threshold;
    Small* small;
    Large* large;
};
} // namespace Torvane
