#pragma once

/// \file
/// How a pool's chunk is cut into blocks; logic on memory that the caller owns.

#include <stdint.h>

namespace Torvane
{
/// A free block: its first word links it to the next one.
struct FreeBlock
{
    FreeBlock* next;
};

/// Cuts `chunk` into blocks that are linked in ascending order, one stride apart: the block size, raised to a multiple
/// of `alignment`. The first stride of the chunk stays out of the list.
/// \return the first block. It is the whole list also where there is no room for a single one.
FreeBlock* CarveChunk(void* chunk, uint32_t chunkSize, uint32_t blockSize, uint32_t alignment);
} // namespace Torvane
