// The memory system of native tests: blocks of the runtime's heap that know their size, so that a block which comes
// back with another size ends the test.

#include "Shared/Memory/MemorySystem.h"

#include <stdio.h>
#include <stdlib.h>

namespace Torvane
{
namespace
{
constexpr size_t headerSize = 16;
}

Allocation Allocate(uint32_t size)
{
    char* block = static_cast<char*>(malloc(headerSize + size));
    *reinterpret_cast<uint32_t*>(block) = size;
    return {block + headerSize, size};
}

void Free(void* pointer, uint32_t size)
{
    char* block = static_cast<char*>(pointer) - headerSize;
    const uint32_t allocated = *reinterpret_cast<uint32_t*>(block);
    if (allocated != size)
    {
        fprintf(stderr, "A block of %u bytes was freed with size %u\n", allocated, size);
        abort();
    }
    free(block);
}

void Free(Allocation& block)
{
    Free(block.pointer, block.size);
    block = Allocation{};
}
} // namespace Torvane
