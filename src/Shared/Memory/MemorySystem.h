#pragma once

/// \file
/// The one source of memory, apart from the process heap. Any thread, between its startup and its shutdown.

#include "Shared/Memory/Allocation.h"

namespace Torvane
{
/// Up to 1024 bytes from the pools, larger ones from a heap. Blocks aren't cleared and are aligned to 8 bytes, those of
/// the pools to 16. There is no failure: memory that the OS doesn't give shows as a fault at the first write.
Allocation Allocate(uint32_t size);

/// Frees a block. `size` has to be the one that was asked for, which isn't checked.
void Free(void* pointer, uint32_t size);

/// Frees a block and clears the owner's record.
void Free(Allocation& block);
} // namespace Torvane
