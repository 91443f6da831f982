#pragma once

/// \file
/// A bounded buffer that takes text of either width; one thread.

#include "Shared/Foundation/ShortCopy.h"

#include <stddef.h>
#include <stdint.h>

namespace Torvane
{
/// Code point that stands for what is malformed.
constexpr uint32_t replacementCharacter = 0xFFFD;

/// Reads one code point of UTF-16 and moves `text` behind it. `end` is behind the last unit.
inline uint32_t ReadCodePoint(const wchar_t*& text, const wchar_t* end)
{
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

/// The same for UTF-8. A malformed sequence counts as one code point for its first byte.
inline uint32_t ReadCodePoint(const char*& text, const char* end)
{
    const uint32_t lead = static_cast<uint8_t>(*text++);
    if (lead < 0x80)
    {
        return lead;
    }
    const uint32_t following = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 && lead < 0xF0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || static_cast<size_t>(end - text) < following)
    {
        return replacementCharacter;
    }
    uint32_t codePoint = lead & (0x3Fu >> following);
    for (uint32_t i = 0; i < following; ++i)
    {
        const uint32_t byte = static_cast<uint8_t>(text[i]);
        if ((byte & 0xC0) != 0x80)
        {
            return replacementCharacter;
        }
        codePoint = codePoint << 6 | (byte & 0x3F);
    }
    const uint32_t smallest = following == 3 ? 0x10000 : following == 2 ? 0x800 : 0x80;
    if (codePoint < smallest || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
    {
        return replacementCharacter;
    }
    text += following;
    return codePoint;
}

/// \return units before the terminator, or `limit`, behind which nothing is read.
template<typename Character>
uint32_t MeasureBounded(const Character* text, uint32_t limit)
{
    uint32_t length = 0;
    while (length < limit && text[length] != 0)
    {
        ++length;
    }
    return length;
}

/// Collects characters up to the buffer's size, terminator included, and remembers whether any was lost.
template<typename Character>
class TextOutput
{
public:
    static constexpr bool isWide = sizeof(Character) == sizeof(wchar_t);

    TextOutput(Character* buffer, size_t size)
        : first(buffer)
        , next(buffer)
        , size(size)
    {
    }

    void Put(Character character)
    {
        if (static_cast<size_t>(next - first) + 1 < size)
        {
            *next++ = character;
        }
        else
        {
            cut = true;
        }
    }

    void Repeat(char character, uint32_t count)
    {
        const uint32_t fitting = TakeRoom(count);
        Character* place = next;
        for (uint32_t i = 0; i < fitting; ++i)
        {
            place[i] = static_cast<Character>(character);
        }
        next = place + fitting;
    }

    void PutAscii(const char* text, uint32_t length)
    {
        const uint32_t fitting = TakeRoom(length);
        Character* place = next;
        for (uint32_t i = 0; i < fitting; ++i)
        {
            place[i] = static_cast<Character>(text[i]);
        }
        next = place + fitting;
    }

    /// Text of the output's own width goes in unit by unit, as it is.
    void PutText(const Character* text, uint32_t length)
    {
        const uint32_t fitting = TakeRoom(length);
        CopyShort(next, text, fitting * sizeof(Character));
        next += fitting;
    }

    template<typename Other>
    void PutText(const Other* text, uint32_t length)
    {
        const Other* end = text + length;
        while (text != end && !cut)
        {
            PutCodePoint(ReadCodePoint(text, end));
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

    void PutCodePoint(uint32_t codePoint)
    {
        if constexpr (isWide)
        {
            if (codePoint >= 0x10000)
            {
                Put(static_cast<Character>(0xD7C0 + (codePoint >> 10)));
                Put(static_cast<Character>(0xDC00 + (codePoint & 0x3FF)));
                return;
            }
            Put(static_cast<Character>(codePoint));
        }
        else if (codePoint < 0x80)
        {
            Put(static_cast<Character>(codePoint));
        }
        else
        {
            PutMultiByte(codePoint);
        }
    }

    void PutMultiByte(uint32_t codePoint)
    {
        const uint32_t following = codePoint >= 0x10000 ? 3 : codePoint >= 0x800 ? 2 : 1;
        const uint32_t lead = following == 3 ? 0xF0 : following == 2 ? 0xE0 : 0xC0;
        Put(static_cast<Character>(lead | codePoint >> (6 * following)));
        for (uint32_t i = following; i-- > 0;)
        {
            Put(static_cast<Character>(0x80 | (codePoint >> (6 * i) & 0x3F)));
        }
    }

    Character* first;
    Character* next;
    size_t size;
    bool cut = false;
};
} // namespace Torvane
