#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/Allocator/SegregatedAllocator.h"
#include "Shared/Memory/Allocator/Windows/HeapAllocator.h"
#include "Shared/Memory/Allocator/Windows/MicroAllocator.h"
#include "Shared/Memory/MemorySystem.h"

namespace Torvane
{
namespace
{
struct MemorySystem
{
    HeapAllocator heapAllocator;
    MicroAllocator microAllocator;
    SegregatedAllocator<MicroAllocator, HeapAllocator> segregatedAllocator;
};

MemorySystem memorySystemObject;
bool memorySystemConstructed = false;
MemorySystem* memorySystem = nullptr;
} // namespace

void StartupMemorySystem()
{
    LogDebug(TVN_HERE, "Initializing default allocators for memory system");
    memorySystemObject.heapAllocator.Startup();
    LogDebug(TVN_HERE, "Initializing heap allocator");
    memorySystemObject.microAllocator.StartupHeap();
    LogDebug(TVN_HERE, "Initializing micro allocator");
    memorySystemObject.microAllocator.StartupPools();
    memorySystemObject.segregatedAllocator.Startup(
        MicroAllocator::largestBlock, &memorySystemObject.microAllocator, &memorySystemObject.heapAllocator);
    LogDebug(TVN_HERE, "Initializing segregated allocator");
    memorySystemConstructed = true;
    memorySystem = &memorySystemObject;
}

void ShutdownMemorySystem()
{
    if (!memorySystemConstructed)
    {
        return;
    }
    LogDebug(TVN_HERE, "Shutting down default allocators for memory system");
    memorySystemObject.microAllocator.ShutdownPools();
    memorySystemObject.microAllocator.ShutdownHeap();
    memorySystemObject.heapAllocator.Shutdown();
    memorySystemConstructed = false;
    memorySystem = nullptr;
}

Allocation Allocate(uint32_t size)
{
    return memorySystem->segregatedAllocator.Allocate(size);
}

void Free(void* pointer, uint32_t size)
{
    memorySystem->segregatedAllocator.Free(pointer, size);
}

void Free(Allocation& block)
{
    Free(block.pointer, block.size);
    block = Allocation{};
}
} // namespace Torvane
