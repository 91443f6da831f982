#pragma once

/// \file
/// Copies of texts that are mostly short, without a call; any thread.

#include <stddef.h>
#include <string.h>

namespace Torvane
{
/// Copies `size` bytes between places that don't overlap. The last piece of a copy may be one that was copied already.
inline void CopyShort(void* destination, const void* source, size_t size)
{
    constexpr size_t piece = 8;
    char* to = static_cast<char*>(destination);
    const char* from = static_cast<const char*>(source);
    if (size < piece)
    {
        for (size_t i = 0; i < size; ++i)
        {
            static_cast<volatile char*>(to)[i] = from[i]; // volatile, since it would become a call
        }
        return;
    }
    if (size > 8 * piece)
    {
        memcpy(to, from, size);
        return;
    }
    for (size_t i = 0; i + piece < size; i += piece)
    {
        memcpy(to + i, from + i, piece);
    }
    memcpy(to + size - piece, from + size - piece, piece);
}
} // namespace Torvane
