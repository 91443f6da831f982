#pragma once

/// \file
/// Bytes that are appended and never move; one thread at a time.

#include "Shared/Memory/VirtualMemoryRange.h"

#include <stdint.h>

namespace Torvane
{
/// Grows inside its reservation. Without memory it panics ("Out of memory") and continues, which leads to a fault.
struct DynamicRangeArray
{
    VirtualMemoryRange range;
    uint32_t maximumCapacity;
    uint32_t capacity; ///< bytes usable at present
    uint32_t count;    ///< bytes in use

    /// Reserves `maximum` bytes of address space and commits none.
    void Create(uint32_t maximum);

    /// Commits up to `newCapacity` bytes.
    void Resize(uint32_t newCapacity);

    void Append(const void* bytes, uint32_t size);

    /// Releases the reservation.
    void Destroy();
};
static_assert(sizeof(void*) != 4 || sizeof(DynamicRangeArray) == 24);
} // namespace Torvane
