#pragma once

/// \file
/// A bounded buffer that text is appended to. One thread.

#include <stddef.h>
#include <stdint.h>
#include <type_traits>

namespace Torvane
{
/// Reads one code point of UTF-16 and moves `text` past it; U+FFFD for a surrogate without its other half.
/// \param end after the last unit.
inline uint32_t ReadCodePoint(const wchar_t*& text, const wchar_t* end)
{
    constexpr uint32_t replacementCharacter = 0xFFFD;
    const uint32_t unit = static_cast<uint16_t>(*text++);
    if (unit < 0xD800 || unit > 0xDFFF)
    {
        return unit;
    }
    if (unit > 0xDBFF || text == end)
    {
        return replacementCharacter;
    }
    const uint32_t low = static_cast<uint16_t>(*text);
    if (low < 0xDC00 || low > 0xDFFF)
    {
        return replacementCharacter;
    }
    ++text;
    return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

/// Collects characters up to the buffer's size, terminator included, and remembers whether any was lost.
///
/// Most pieces of a log record are so short that a call of `memcpy` or `memset` would cost more than the copy: the loops
/// are kept from becoming one.
template<typename Character>
class TextOutput
{
public:
    TextOutput(Character* buffer, size_t size)
        : first(buffer)
        , next(buffer)
        , size(size)
    {
    }

    __attribute__((no_builtin("memcpy", "memset"))) void Repeat(char character, uint32_t count)
    {
        const uint32_t fitting = TakeRoom(count);
        for (uint32_t i = 0; i < fitting; ++i)
        {
            next[i] = static_cast<Character>(character);
        }
        next += fitting;
    }

    /// Appends a string of the output's own type as it is, UTF-16 as UTF-8, and ASCII to either.
    template<typename Source>
    __attribute__((no_builtin("memcpy", "memset"))) void Append(const Source* text, uint32_t length)
    {
        if constexpr (std::is_same_v<Source, Character> || std::is_same_v<Source, char>)
        {
            const uint32_t fitting = TakeRoom(length);
            for (uint32_t i = 0; i < fitting; ++i)
            {
                next[i] = static_cast<Character>(text[i]);
            }
            next += fitting;
        }
        else
        {
            const Source* end = text + length;
            while (text != end && !cut)
            {
                AppendUtf8(ReadCodePoint(text, end));
            }
        }
    }

    /// Terminates the text. \return its length, negative if it was cut.
    int Finish()
    {
        if (size == 0)
        {
            return -1;
        }
        *next = 0;
        return cut ? -1 : static_cast<int>(next - first);
    }

private:
    /// \return how many of `count` characters fit; if that isn't all of them, the text is cut.
    uint32_t TakeRoom(uint32_t count)
    {
        const size_t used = static_cast<size_t>(next - first) + 1;
        const size_t room = used < size ? size - used : 0;
        if (count <= room)
        {
            return count;
        }
        cut = true;
        return static_cast<uint32_t>(room);
    }

    void AppendUtf8(uint32_t codePoint)
    {
        if (codePoint < 0x80)
        {
            return Repeat(static_cast<char>(codePoint), 1);
        }
        char bytes[4];
        const uint32_t following = codePoint >= 0x10000 ? 3 : codePoint >= 0x800 ? 2 : 1;
        for (uint32_t i = following; i > 0; --i)
        {
            bytes[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
            codePoint >>= 6;
        }
        const uint32_t lead = following == 3 ? 0xF0 : following == 2 ? 0xE0 : 0xC0;
        bytes[0] = static_cast<char>(lead | codePoint);
        Append(bytes, following + 1);
    }

    Character* first;
    Character* next;
    size_t size;
    bool cut = false;
};
} // namespace Torvane
