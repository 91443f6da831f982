#pragma once

/// \file
/// Large blocks, from a private OS heap. Any thread; the OS does the locking.

#include "Shared/Memory/Allocation.h"

#include <windows.h>

namespace Torvane
{
/// Initial size of a private heap, in bytes. It can grow.
constexpr SIZE_T privateHeapSize = 0x8000000;

class HeapAllocator
{
public:
    void Startup()
    {
        heap = HeapCreate(0, privateHeapSize, 0);
    }

    void Shutdown()
    {
        HeapDestroy(heap);
    }

    Allocation Allocate(uint32_t size)
    {
        return {HeapAlloc(heap, 0, size), size};
    }

    void Free(void* pointer)
    {
        HeapFree(heap, 0, pointer);
    }

private:
    HANDLE heap;
};
} // namespace Torvane
