#pragma once

/// \file
/// What both passes of the JSON reader know of the grammar, and the parts of pass one. For the reader and its
/// tests; any thread, each with its own state.

#include "Shared/Serialization/JsonReader.h"

namespace Torvane
{
inline bool IsSet(const JsonParseState& state, JsonOption::Bit option)
{
    return (state.flags & option) != 0;
}

inline bool IsAtEnd(const JsonParseState& state)
{
    return state.offset >= state.size;
}

/// The state must not be at the end.
inline uint8_t Peek(const JsonParseState& state)
{
    return state.source[state.offset];
}

/// To be called with the line feed at the state's offset.
inline void NoteLineFeed(JsonParseState& state)
{
    ++state.lineNumber;
    state.lineOffset = state.offset;
}

inline bool IsDigit(uint8_t character)
{
    return character >= '0' && character <= '9';
}

inline bool IsNameCharacter(uint8_t character)
{
    const uint8_t lower = character | 0x20;
    return IsDigit(character) || (lower >= 'a' && lower <= 'z') || character == '_';
}

/// Whether a string begins with this character.
inline bool IsQuote(const JsonParseState& state, uint8_t character)
{
    return character == '"' || (character == '\'' && IsSet(state, JsonOption::SingleQuotes));
}

/// Whether a value that begins with this character is a number.
bool IsNumberStart(const JsonParseState& state, uint8_t character);

/// \return 0 to 15, or -1 if the character is no hexadecimal digit.
int32_t HexadecimalValue(uint8_t character);

/// Reads an escape of the form `\u`, with four hexadecimal digits, at an offset.
/// \return false if none stands there.
bool ReadUnicodeEscape(const JsonParseState& state, uint32_t offset, uint32_t& unit);

/// Length of `\u` with its digits.
constexpr uint32_t unicodeEscapeLength = 6;

inline bool IsHighSurrogate(uint32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

inline bool IsLowSurrogate(uint32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Goes over a number. Where the text ends, it ends as well.
/// \return false if there is something wrong with it, with the offset at the byte that can't be.
bool ScanNumber(JsonParseState& state);

/// Pass one's part for a string in quotes: adds its text. `QuoteExpected`, `BadEscape`, `BadString` or
/// `UnexpectedEnd` on failure.
bool SizeString(JsonParseState& state);

/// Pass one's part for an object or an array, the latter unless `withoutBraces`.
bool SizeContainer(JsonParseState& state, bool withoutBraces);
} // namespace Torvane
