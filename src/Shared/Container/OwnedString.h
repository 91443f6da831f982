#pragma once

/// \file
/// Strings in blocks of their own size, for copies and changes of encoding. Any thread; a string belongs to one at a
/// time.

#include "Shared/Memory/MemorySystem.h"

#include <stdint.h>
#include <utility>

namespace Torvane
{
/// Owns a zero-terminated string, or none, and frees it at its end. Can be moved and not copied.
template<typename Character>
struct BasicOwnedString
{
    uint32_t length = 0;   ///< characters, without the terminator
    uint32_t capacity = 0; ///< length + 1, or 0 if there is no string
    Character* pointer = nullptr;

    BasicOwnedString() = default;

    /// Allocates room for `characters` and a terminator, which the caller has to write.
    explicit BasicOwnedString(uint32_t characters)
        : length(characters)
        , capacity(characters + 1)
        , pointer(static_cast<Character*>(Allocate(GetSize()).pointer))
    {
    }

    BasicOwnedString(BasicOwnedString&& other) noexcept
        : length(std::exchange(other.length, 0))
        , capacity(std::exchange(other.capacity, 0))
        , pointer(std::exchange(other.pointer, nullptr))
    {
    }

    ~BasicOwnedString()
    {
        if (capacity != 0 && pointer != nullptr)
        {
            Free(pointer, GetSize());
        }
    }

    BasicOwnedString& operator=(BasicOwnedString&&) = delete;

private:
    uint32_t GetSize() const
    {
        return capacity * static_cast<uint32_t>(sizeof(Character));
    }
};

using OwnedString = BasicOwnedString<char>;
using OwnedWideString = BasicOwnedString<wchar_t>;
static_assert(sizeof(void*) != 4 || sizeof(OwnedWideString) == 12);

/// Converts to the runtime's multibyte encoding, with room for one byte per UTF-16 unit: what needs more is cut.
OwnedString NarrowFromWide(const wchar_t* text);

/// Converts from the runtime's multibyte encoding.
OwnedWideString WideFromNarrow(const char* text);

/// \param text at any address, as in a Blob, where strings have no alignment.
OwnedWideString CopyWide(const wchar_t* text);
} // namespace Torvane
