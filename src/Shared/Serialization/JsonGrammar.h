#pragma once

/// \file
/// What both passes of the JSON reader know of the grammar, and the parts of pass one. For the reader and its
/// tests; any thread, each with its own state.
///
/// Within a pass a place in the text is a pointer, which a function takes and gives back moved on. The state's own
/// `offset` is set where a pass ends or fails.

#include "Shared/Serialization/JsonReader.h"
#include "Shared/Serialization/JsonRuns.h"

namespace Torvane
{
inline bool IsSet(const JsonParseState& state, JsonOption::Bit option)
{
    return (state.flags & option) != 0;
}

/// A state during a pass.
struct JsonPass : JsonParseState
{
    const uint8_t* end;      ///< of the text
    uint32_t lastIndent = 0; ///< how far whitespace reached into the last group in which it ended

    explicit JsonPass(const JsonParseState& state)
        : JsonParseState(state)
        , end(state.source + state.size)
    {
    }
};

/// Where the state's offset stands.
inline const uint8_t* PlaceOf(const JsonParseState& state)
{
    return state.source + state.offset;
}

inline void StandAt(JsonParseState& state, const uint8_t* at)
{
    state.offset = CountLeft(state.source, at);
}

/// \return null, which stands for the failure.
inline const uint8_t* Fail(JsonParseState& state, const uint8_t* at, JsonError::Value error)
{
    StandAt(state, at);
    state.error = error;
    return nullptr;
}

/// \param at where the line feed stands.
inline void NoteLineFeed(JsonParseState& state, const uint8_t* at)
{
    ++state.lineNumber;
    state.lineOffset = CountLeft(state.source, at);
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
inline bool IsNumberStart(const JsonParseState& state, uint8_t character)
{
    if (IsDigit(character) || character == '-')
    {
        return true;
    }
    if (character == '.')
    {
        return IsSet(state, JsonOption::LoosePoint);
    }
    return ((character == '+' || character == 'I' || character == 'N') &&
            IsSet(state, JsonOption::InfinityAndNaN)) ||
           (character == '+' && IsSet(state, JsonOption::LeadingPlus));
}

/// Reads an escape of the form `\u`, with four hexadecimal digits.
/// \return false if none stands there.
bool ReadUnicodeEscape(const uint8_t* at, const uint8_t* end, uint32_t& unit);

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

/// Goes over whitespace and comments, from any character or the end of the text on.
/// \return where a character stands. Null if none does, with `UnexpectedEnd` and the state's offset at the end of the
/// text or at the start of a comment without its end.
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

/// Goes over a number. Where the text ends, it ends as well.
/// \return null with `BadNumber` if there is something wrong with it, with the offset at the byte that can't be.
const uint8_t* ScanNumber(JsonPass& pass, const uint8_t* at);

/// Pass one's part for a string in quotes: adds its text.
/// \return what stands behind it. Null with `QuoteExpected`, `BadEscape`, `BadString` or `UnexpectedEnd` on failure.
const uint8_t* SizeString(JsonPass& pass, const uint8_t* at);

/// Pass one's part for an object or an array, the latter unless `withoutBraces`.
/// \return what stands behind it, or null on failure.
const uint8_t* SizeContainer(JsonPass& pass, const uint8_t* at, bool withoutBraces);
} // namespace Torvane
