#pragma once

/// \file
/// The parts of the JSON grammar below a value: whitespace, escapes and numbers, once for both passes. For the reader
/// and its tests; any thread, each with its own state.
///
/// A position in the source is a pointer. A function that reads takes the position where it begins and returns the one
/// after what it has read. Null means failure, which `Fail` has recorded in the state.

#include "Shared/Serialization/JsonReader.h"
#include "Shared/Serialization/JsonRuns.h"

#include <string.h>

namespace Torvane
{
inline bool IsSet(const JsonParseState& state, JsonOption::Bit option)
{
    return (state.flags & option) != 0;
}

/// A state during a pass. Its `offset` is where the pass began, until it ends or fails.
struct JsonPass : JsonParseState
{
    const uint8_t* end;  ///< of the source; once a comment without its end is found, the start of that
    uint32_t valueSize;  ///< of a `JsonValue`, with its position if positions are recorded
    uint32_t stringSize; ///< of a `JsonString`, likewise

    explicit JsonPass(const JsonParseState& state)
        : JsonParseState(state)
        , end(state.source + state.size)
        , valueSize(IsSet(state, JsonOption::RecordPositions) ? sizeof(JsonPlacedValue) : sizeof(JsonValue))
        , stringSize(IsSet(state, JsonOption::RecordPositions) ? sizeof(JsonPlacedString)
                                                               : sizeof(JsonString))
    {
    }
};

/// In place of a character.
inline constexpr int32_t endOfText = -1;

inline int32_t CharacterAt(const JsonPass& pass, const uint8_t* at)
{
    return at != pass.end ? *at : endOfText;
}

/// Records a failure. At the end of the text its error is `UnexpectedEnd`, whatever was expected there.
/// \return null.
inline const uint8_t* Fail(JsonPass& pass, const uint8_t* at, JsonError::Value error)
{
    pass.offset = CountLeft(pass.source, at);
    pass.error = at != pass.end ? error : JsonError::UnexpectedEnd;
    return nullptr;
}

inline void CountLineFeed(JsonPass& pass, const uint8_t* lineFeed)
{
    ++pass.lineNumber;
    pass.lineOffset = CountLeft(pass.source, lineFeed);
}

/// Skips whitespace and comments.
/// \return where another character is, or the end of the text: a comment without its end is the end of the text.
const uint8_t* SkipAnyWhitespace(JsonPass& pass, const uint8_t* at);

inline bool IsSurelyNoWhitespace(uint8_t character)
{
    return character > ' ' && character != '/';
}

/// The same, and faster where there is none or one blank.
inline const uint8_t* SkipWhitespace(JsonPass& pass, const uint8_t* at)
{
    if (at != pass.end && IsSurelyNoWhitespace(*at))
    {
        return at;
    }
    if (CountLeft(at, pass.end) >= 2 && *at == ' ' && IsSurelyNoWhitespace(at[1]))
    {
        return at + 1;
    }
    return SkipAnyWhitespace(pass, at);
}

/// Whether the text continues with a word.
template<uint32_t size>
bool IsWord(const uint8_t* at, const uint8_t* end, const char (&word)[size])
{
    return CountLeft(at, end) >= size - 1 && memcmp(at, word, size - 1) == 0;
}

inline bool IsDigit(int32_t character)
{
    return character >= '0' && character <= '9';
}

/// Whether an option makes a number of a value that begins with this character.
bool IsExtendedNumberStart(const JsonPass& pass, int32_t character);

/// Checks a number. The end of the text ends any number, even one that is only a sign.
/// \return its end, which is the first of `NumberStops`, or null with `BadNumber` at the first byte that can't be.
const uint8_t* CheckNumber(JsonPass& pass, const uint8_t* at);

/// Length of `\u` with its digits.
inline constexpr uint32_t unicodeEscapeLength = 6;

/// Above all characters.
inline constexpr uint32_t noCharacter = UINT32_MAX;

/// Reads an escape of the form `\u`, with four hexadecimal digits, or two of them that are a surrogate pair.
/// \return the character, from 0x10000 on if it is a pair; `noCharacter` if there is no such escape.
uint32_t DecodeUnicodeEscape(const uint8_t* at, const uint8_t* end);
} // namespace Torvane
