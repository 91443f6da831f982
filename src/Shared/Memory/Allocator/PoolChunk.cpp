#include "Shared/Memory/Allocator/PoolChunk.h"

namespace Torvane
{
namespace
{
constexpr uint32_t smallestBlock = 4;

uintptr_t RoundUp(uintptr_t value, uint32_t alignment)
{
    return (value + alignment - 1) / alignment * alignment;
}

FreeBlock* BlockAt(uintptr_t address)
{
    return reinterpret_cast<FreeBlock*>(address);
}
} // namespace

FreeBlock* CarveChunk(void* chunk, uint32_t chunkSize, uint32_t blockSize, uint32_t alignment)
{
    const uintptr_t start = reinterpret_cast<uintptr_t>(chunk);
    const uintptr_t stride = RoundUp(blockSize < smallestBlock ? smallestBlock : blockSize, alignment);
    const uintptr_t first = RoundUp(start + stride, alignment);
    const uintptr_t count = (chunkSize - (first - start)) / stride;
    uintptr_t block = first;
    for (uintptr_t i = 1; i < count; ++i, block += stride)
    {
        BlockAt(block)->next = BlockAt(block + stride);
    }
    BlockAt(block)->next = nullptr;
    return BlockAt(first);
}
} // namespace Torvane
