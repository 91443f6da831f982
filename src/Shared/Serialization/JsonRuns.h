#pragma once

/// \file
/// How the JSON reader looks at sixteen bytes, a group, at once. Any thread.
///
/// A mask has bit `i` for byte `i` of a group. For example, after the opening quote of a name the group
///
///     byte         0  1  2  3  4  5  6  7  8  9 10 11 12 13 14 15
///     character    t  i  m  e  o  u  t  "  :     2  0  0  0  , \n
///     StringStops  .  .  .  .  .  .  .  1  .  .  .  .  .  .  .  1      = 0x8080
///     NonDigits    1  1  1  1  1  1  1  1  1  1  .  .  .  .  1  1      = 0xC3FF
///
/// has its first string stop at `FirstOf(0x8080)` = 7: the name is the seven characters before the quote. Later bits
/// mean nothing; the line feed isn't in the string. The number's end is found with the group that begins at the `2`,
/// whose `NonDigits` begins with four clear bits.
///
/// Less than a group is left at the end of a source: its bytes are looked at one by one, each as the first of a group.

#include <emmintrin.h>
#include <stdint.h>

namespace Torvane
{
inline constexpr uint32_t jsonGroupSize = 16;

inline __m128i LoadGroup(const uint8_t* at)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

/// Bytes from one position of a text up to another.
inline uint32_t CountLeft(const uint8_t* at, const uint8_t* end)
{
    return static_cast<uint32_t>(end - at);
}

/// Number of the lowest bit, of which one must be set.
inline uint32_t FirstOf(uint32_t mask)
{
    return static_cast<uint32_t>(__builtin_ctz(mask));
}

inline uint32_t MaskOf(__m128i matches)
{
    return static_cast<uint32_t>(_mm_movemask_epi8(matches));
}

inline __m128i MatchByte(__m128i group, char byte)
{
    return _mm_cmpeq_epi8(group, _mm_set1_epi8(byte));
}

/// Matches the bytes up to this one, unsigned.
inline __m128i MatchUpTo(__m128i group, char last)
{
    return _mm_cmpeq_epi8(_mm_min_epu8(group, _mm_set1_epi8(last)), group);
}

/// Characters of a string in quotes that may be anything else than themselves: a quote, an escape, a line break or one
/// that isn't allowed.
/// \param quotes the quote that ends the string, sixteen times.
inline uint32_t StringStops(__m128i group, __m128i quotes)
{
    const __m128i stops = _mm_or_si128(_mm_cmpeq_epi8(group, quotes), MatchByte(group, '\\'));
    return MaskOf(_mm_or_si128(stops, MatchUpTo(group, '\r')));
}

/// Characters that aren't part of a number that has been checked.
inline uint32_t NumberStops(__m128i group)
{
    static_assert((']' | 0x20) == '}');
    const __m128i brackets = MatchByte(_mm_or_si128(group, _mm_set1_epi8(0x20)), '}');
    const __m128i separators = _mm_or_si128(MatchByte(group, ','), MatchByte(group, '/'));
    return MaskOf(_mm_or_si128(_mm_or_si128(brackets, separators), MatchUpTo(group, ' ')));
}

inline uint32_t NonDigits(__m128i group)
{
    const __m128i values = _mm_sub_epi8(group, _mm_set1_epi8('0'));
    return MaskOf(MatchUpTo(values, 9)) ^ 0xFFFF;
}

/// Characters other than whitespace within a line.
inline uint32_t NonBlanks(__m128i group)
{
    const __m128i blanks = _mm_or_si128(MatchByte(group, ' '), MatchByte(group, '\t'));
    return MaskOf(_mm_or_si128(blanks, MatchByte(group, '\r'))) ^ 0xFFFF;
}

/// \param stops gives the mask of a group.
template<typename Stops>
bool IsStop(Stops stops, uint8_t character)
{
    return (stops(_mm_cvtsi32_si128(character)) & 1) != 0;
}

/// \return the first byte whose bit is set, or `end`.
template<typename Stops>
const uint8_t* FindStop(Stops stops, const uint8_t* at, const uint8_t* end)
{
    for (; CountLeft(at, end) >= jsonGroupSize; at += jsonGroupSize)
    {
        const uint32_t mask = stops(LoadGroup(at));
        if (mask != 0)
        {
            return at + FirstOf(mask);
        }
    }
    while (at != end && !IsStop(stops, *at))
    {
        ++at;
    }
    return at;
}
} // namespace Torvane
