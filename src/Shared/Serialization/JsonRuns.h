#pragma once

/// \file
/// How the JSON reader looks at sixteen bytes at once. Any thread.
///
/// A mask has bit `i` for byte `i`. Nothing here is sent beyond the end of a text: what is left of it, if it is less
/// than a group, is gone over byte by byte.

#include <emmintrin.h>
#include <stdint.h>

namespace Torvane
{
constexpr uint32_t jsonGroupSize = 16;

inline __m128i LoadGroup(const uint8_t* at)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

inline void StoreGroup(char* at, __m128i group)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at), group);
}

/// Bytes from one place of a text up to another.
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

/// Whether a character of a string in quotes may be anything else than itself: a quote, an escape, a line break or one
/// that isn't allowed.
inline bool IsStringStop(uint8_t character, uint8_t quote)
{
    return character == quote || character == '\\' || character <= '\r';
}

inline uint32_t StringStops(__m128i group, uint8_t quote)
{
    const __m128i quotes = quote == '"' ? _mm_set1_epi8('"') : _mm_set1_epi8('\'');
    const __m128i stops = _mm_or_si128(_mm_cmpeq_epi8(group, quotes), MatchByte(group, '\\'));
    return MaskOf(_mm_or_si128(stops, MatchUpTo(group, '\r')));
}

inline uint32_t NonDigits(__m128i group)
{
    const __m128i values = _mm_sub_epi8(group, _mm_set1_epi8('0'));
    return MaskOf(MatchUpTo(values, 9)) ^ 0xFFFF;
}

inline uint32_t NonWhitespace(__m128i group)
{
    const __m128i inLine = _mm_or_si128(MatchByte(group, ' '), MatchByte(group, '\t'));
    const __m128i ends = _mm_or_si128(MatchByte(group, '\n'), MatchByte(group, '\r'));
    return MaskOf(_mm_or_si128(inLine, ends)) ^ 0xFFFF;
}

/// Whether a character, behind a number that was found right, is no part of it.
inline bool IsNumberStop(uint8_t character)
{
    return character <= ' ' || character == ',' || character == '/' || character == ']' || character == '}';
}

inline uint32_t NumberStops(__m128i group)
{
    static_assert((']' | 0x20) == '}');
    const __m128i brackets = MatchByte(_mm_or_si128(group, _mm_set1_epi8(0x20)), '}');
    const __m128i separators = _mm_or_si128(MatchByte(group, ','), MatchByte(group, '/'));
    return MaskOf(_mm_or_si128(_mm_or_si128(brackets, separators), MatchUpTo(group, ' ')));
}
} // namespace Torvane
