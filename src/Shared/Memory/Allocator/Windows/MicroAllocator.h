#pragma once

/// \file
/// Blocks of up to 1024 bytes, from 128 pools of one size each. Any thread; each pool has a lock of its own.

#include "Shared/Memory/Allocation.h"
#include "Shared/Memory/Allocator/PoolChunk.h"

#include <windows.h>

namespace Torvane
{
/// A piece of a pool's memory: its first word links it to the piece that was allocated before it.
struct PoolChunkLink
{
    PoolChunkLink* next;
};

/// One size class. A block that was freed last is allocated first.
class MicroPool
{
public:
    void Startup(HANDLE poolHeap, uint32_t size);

    /// Frees all chunks, whether or not blocks are in use.
    void Shutdown();

    void* Allocate();
    void Free(void* block);

private:
    void Grow();

    CRITICAL_SECTION lock;
    HANDLE heap;
    FreeBlock* freeList;
    uint32_t blockSize;
    uint32_t alignment;
    uint32_t chunkSize;
    PoolChunkLink* chunkList;
};
static_assert(sizeof(MicroPool) == 48);

class MicroAllocator
{
public:
    static constexpr uint32_t poolCount = 128;
    static constexpr uint32_t largestBlock = 1024;
    static constexpr uint32_t classStep = 8;

    void StartupHeap();
    void StartupPools();
    void ShutdownPools();
    void ShutdownHeap();

    Allocation Allocate(uint32_t size)
    {
        return {storage.sizeTable[size]->Allocate(), size};
    }

    void Free(void* pointer, uint32_t size)
    {
        storage.sizeTable[size]->Free(pointer);
    }

private:
    /// Cleared as one piece.
    struct Storage
    {
        MicroPool* sizeTable[largestBlock + 1]; ///< by a block's size
        MicroPool pools[poolCount];
    };
    static_assert(sizeof(Storage) == 10244);

    HANDLE heap;
    Allocation pools[poolCount]; ///< each pool and the size of its object
    Storage storage;
};
} // namespace Torvane
