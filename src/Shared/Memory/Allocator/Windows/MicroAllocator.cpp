#include "Shared/Memory/Allocator/Windows/MicroAllocator.h"

#include "Shared/Memory/Allocator/Windows/HeapAllocator.h"

#include <string.h>

namespace Torvane
{
namespace
{
constexpr uint32_t poolAlignment = 16;
constexpr uint32_t poolChunkSize = 0x100000;
} // namespace

void MicroPool::Startup(HANDLE poolHeap, uint32_t size)
{
    memset(&lock, 0, sizeof(lock));
    InitializeCriticalSection(&lock);
    heap = poolHeap;
    freeList = nullptr;
    blockSize = size;
    alignment = poolAlignment;
    chunkSize = poolChunkSize;
    chunkList = nullptr;
}

void MicroPool::Shutdown()
{
    EnterCriticalSection(&lock);
    while (chunkList != nullptr)
    {
        PoolChunkLink* chunk = chunkList;
        chunkList = chunk->next;
        HeapFree(heap, 0, chunk);
    }
    LeaveCriticalSection(&lock);
    DeleteCriticalSection(&lock);
}

void* MicroPool::Allocate()
{
    EnterCriticalSection(&lock);
    if (freeList == nullptr)
    {
        Grow();
    }
    FreeBlock* block = freeList;
    freeList = block->next;
    LeaveCriticalSection(&lock);
    return block;
}

void MicroPool::Free(void* block)
{
    EnterCriticalSection(&lock);
    FreeBlock* head = static_cast<FreeBlock*>(block);
    head->next = freeList;
    freeList = head;
    LeaveCriticalSection(&lock);
}

void MicroPool::Grow()
{
    PoolChunkLink* chunk = static_cast<PoolChunkLink*>(HeapAlloc(heap, 0, chunkSize));
    freeList = CarveChunk(chunk, chunkSize, blockSize, alignment);
    chunk->next = chunkList;
    chunkList = chunk;
}

void MicroAllocator::StartupHeap()
{
    heap = HeapCreate(0, privateHeapSize, 0);
    memset(pools, 0, sizeof(pools));
    memset(static_cast<void*>(&storage), 0, sizeof(storage));
}

void MicroAllocator::StartupPools()
{
    for (uint32_t i = 0; i < poolCount; ++i)
    {
        MicroPool* pool = &storage.pools[i];
        pool->Startup(heap, classStep * (i + 1));
        pools[i] = {pool, sizeof(MicroPool)};
    }
    storage.sizeTable[0] = &storage.pools[0];
    for (uint32_t size = 1; size <= largestBlock; ++size)
    {
        storage.sizeTable[size] = &storage.pools[(size - 1) / classStep];
    }
}

void MicroAllocator::ShutdownPools()
{
    for (Allocation& pool : pools)
    {
        if (pool.pointer != nullptr)
        {
            static_cast<MicroPool*>(pool.pointer)->Shutdown();
            pool = Allocation{};
        }
    }
}

void MicroAllocator::ShutdownHeap()
{
    HeapDestroy(heap);
}
} // namespace Torvane
