#pragma once

/// \file
/// Texts of their own size in the memory system, for changes of encoding and copies; one thread at a time.

#include <stdint.h>

namespace Torvane
{
/// Owned by whoever holds it, and given back with `Free`.
template<typename Character>
struct BasicOwnedString
{
    uint32_t length;   ///< characters, without the terminator
    uint32_t capacity; ///< length + 1
    Character* pointer;
};

using OwnedString = BasicOwnedString<char>;
using OwnedWideString = BasicOwnedString<wchar_t>;
static_assert(sizeof(void*) != 4 || sizeof(OwnedWideString) == 12);

/// Texts of `length` characters, terminator not counted, that the caller has still to write.
OwnedString AllocateNarrow(uint32_t length);
OwnedWideString AllocateWide(uint32_t length);

/// Converts by the runtime's multibyte encoding, with one narrow character for a wide one; what doesn't fit is cut.
/// Not built natively.
OwnedString NarrowFromWide(const wchar_t* text);
OwnedWideString WideFromNarrow(const char* text);

OwnedWideString CopyWide(const wchar_t* text);

void Free(OwnedString& text);
void Free(OwnedWideString& text);
} // namespace Torvane
