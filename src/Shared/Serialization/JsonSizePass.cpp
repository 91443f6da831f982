#include "Shared/Serialization/JsonGrammar.h"

#include <stddef.h>

namespace Torvane
{
namespace
{
void AddTo(uint32_t& size, size_t more)
{
    size = more > UINT32_MAX - size ? UINT32_MAX : size + static_cast<uint32_t>(more);
}

template<typename Plain, typename Placed>
uint32_t SizeOfPlaceable(const JsonPass& pass)
{
    return IsSet(pass, JsonOption::RecordPositions) ? sizeof(Placed) : sizeof(Plain);
}

uint32_t SizeOfValue(const JsonPass& pass)
{
    return SizeOfPlaceable<JsonValue, JsonPlacedValue>(pass);
}

uint32_t SizeOfString(const JsonPass& pass)
{
    return SizeOfPlaceable<JsonString, JsonPlacedString>(pass);
}

/// Adds a text and its terminator.
void AddText(JsonPass& pass, uint32_t length)
{
    AddTo(pass.dataSize, size_t{length} + 1);
}

/// From a backslash on.
/// \param dropped goes up by the bytes that the escape is longer than what it stands for.
const uint8_t* SizeUnicodeEscape(JsonPass& pass, const uint8_t* at, uint32_t& dropped)
{
    uint32_t unit = 0;
    if (!ReadUnicodeEscape(at, pass.end, unit) || IsLowSurrogate(unit))
    {
        return Fail(pass, at, JsonError::BadEscape);
    }
    if (!IsHighSurrogate(unit))
    {
        dropped += unicodeEscapeLength - (unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3);
        return at + unicodeEscapeLength;
    }
    if (!ReadUnicodeEscape(at + unicodeEscapeLength, pass.end, unit) || !IsLowSurrogate(unit))
    {
        return Fail(pass, at, JsonError::BadEscape);
    }
    dropped += 2 * unicodeEscapeLength - 4;
    return at + 2 * unicodeEscapeLength;
}

/// From a backslash on.
/// \param dropped goes up by the bytes that the escape is longer than what it stands for.
const uint8_t* SizeEscape(JsonPass& pass, const uint8_t* at, uint32_t& dropped)
{
    if (CountLeft(at, pass.end) < 2)
    {
        return Fail(pass, pass.end, JsonError::UnexpectedEnd);
    }
    switch (at[1])
    {
    case '"':
    case '/':
    case '\\':
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
        ++dropped;
        return at + 2;
    case 'u':
        return SizeUnicodeEscape(pass, at, dropped);
    case '\n':
    case '\r':
        if (!IsSet(pass, JsonOption::LineBreaksInStrings))
        {
            return Fail(pass, at, JsonError::BadEscape);
        }
        ++dropped;
        return at + 1; // The line break itself comes next, as a raw one.
    default:
        return Fail(pass, at, JsonError::BadEscape);
    }
}

/// A control character in a string.
const uint8_t* SizeControl(JsonPass& pass, const uint8_t* at)
{
    switch (*at)
    {
    case '\0':
    case '\t':
        return Fail(pass, at, JsonError::BadString);
    case '\n':
    case '\r':
        if (!IsSet(pass, JsonOption::LineBreaksInStrings))
        {
            return Fail(pass, at, JsonError::BadEscape);
        }
        if (*at == '\n')
        {
            NoteLineFeed(pass, at);
        }
        break;
    default:
        break;
    }
    return at + 1;
}

const uint8_t* SkipPlainCharacters(const uint8_t* at, const uint8_t* end, uint8_t quote)
{
    while (CountLeft(at, end) >= jsonGroupSize)
    {
        const uint32_t stops = StringStops(LoadGroup(at), quote);
        if (stops != 0)
        {
            return at + FirstOf(stops);
        }
        at += jsonGroupSize;
    }
    while (at != end && !IsStringStop(*at, quote))
    {
        ++at;
    }
    return at;
}

const uint8_t* SizeUnquotedName(JsonPass& pass, const uint8_t* at)
{
    const uint8_t* start = at;
    while (at != pass.end && IsNameCharacter(*at))
    {
        ++at;
    }
    AddText(pass, CountLeft(start, at));
    return at != start ? at : Fail(pass, at, JsonError::BadString);
}

const uint8_t* SizeName(JsonPass& pass, const uint8_t* at)
{
    if (*at != '"' && IsSet(pass, JsonOption::UnquotedNames) && !IsQuote(pass, *at))
    {
        return SizeUnquotedName(pass, at);
    }
    at = SizeString(pass, at);
    if (at == nullptr)
    {
        pass.error = JsonError::BadString;
    }
    return at;
}

/// A member's name and its colon, up to its value.
const uint8_t* SizeMemberStart(JsonPass& pass, const uint8_t* at)
{
    at = SizeName(pass, at);
    if (at == nullptr)
    {
        return nullptr;
    }
    at = SkipWhitespace(pass, at);
    if (at == nullptr)
    {
        return nullptr;
    }
    if (*at != ':' && !(*at == '=' && IsSet(pass, JsonOption::EqualsSign)))
    {
        return Fail(pass, at, JsonError::ColonExpected);
    }
    return SkipWhitespace(pass, at + 1);
}

const uint8_t* SizeWord(JsonPass& pass, const uint8_t* at, const char* word, uint32_t length)
{
    if (CountLeft(at, pass.end) < length)
    {
        return Fail(pass, at, JsonError::BadValue);
    }
    for (uint32_t i = 0; i < length; ++i)
    {
        if (at[i] != static_cast<uint8_t>(word[i]))
        {
            return Fail(pass, at, JsonError::BadValue);
        }
    }
    return at + length;
}

const uint8_t* SizeNumber(JsonPass& pass, const uint8_t* at)
{
    const uint8_t* behind = ScanNumber(pass, at);
    if (behind != nullptr)
    {
        AddTo(pass.domSize, sizeof(JsonNumber));
        AddText(pass, CountLeft(at, behind));
    }
    return behind;
}

/// A value that holds no others.
const uint8_t* SizeScalar(JsonPass& pass, const uint8_t* at)
{
    if (IsQuote(pass, *at))
    {
        AddTo(pass.domSize, SizeOfString(pass));
        return SizeString(pass, at);
    }
    if (IsNumberStart(pass, *at))
    {
        return SizeNumber(pass, at);
    }
    switch (*at)
    {
    case 't':
        return SizeWord(pass, at, "true", 4);
    case 'f':
        return SizeWord(pass, at, "false", 5);
    case 'n':
        return SizeWord(pass, at, "null", 4);
    default:
        return Fail(pass, at, JsonError::BadValue);
    }
}

/// What closes an object without braces, in place of a character.
constexpr int32_t endOfText = -1;

const uint8_t* SizeItems(JsonPass& pass, const uint8_t* at, int32_t close);

/// A value's own record is counted already.
const uint8_t* SizeValue(JsonPass& pass, const uint8_t* at)
{
    switch (*at)
    {
    case '[':
        return SizeItems(pass, at + 1, ']');
    case '{':
        return SizeItems(pass, at + 1, '}');
    default:
        return SizeScalar(pass, at);
    }
}

/// Goes over what stands behind a member's or an element's value, up to the next one or beyond the closing bracket.
/// \param isClosed whether it was the latter.
const uint8_t* SizeSeparator(JsonPass& pass, const uint8_t* at, int32_t close, bool& isClosed)
{
    at = SkipWhitespace(pass, at);
    if (at == nullptr)
    {
        isClosed = close == endOfText;
        return isClosed ? PlaceOf(pass) : nullptr;
    }
    const bool comma = *at == ',';
    if (comma)
    {
        at = SkipWhitespace(pass, at + 1);
        if (!IsSet(pass, JsonOption::TrailingComma))
        {
            // A closing bracket here is found out as a bad name or value.
            return at;
        }
        if (at == nullptr)
        {
            isClosed = close == endOfText;
            return isClosed ? PlaceOf(pass) : nullptr;
        }
    }
    if (*at == close)
    {
        isClosed = true;
        return at + 1;
    }
    if (!comma && !IsSet(pass, JsonOption::NoCommas))
    {
        return Fail(pass, at, JsonError::CommaExpected);
    }
    return at;
}

/// The members of an object or the elements of an array, from behind the opening bracket to behind the closing one.
const uint8_t* SizeItems(JsonPass& pass, const uint8_t* at, int32_t close)
{
    const bool isObject = close != ']';
    AddTo(pass.domSize, isObject ? sizeof(JsonObject) : sizeof(JsonArray));
    at = SkipWhitespace(pass, at);
    if (at == nullptr)
    {
        return close == endOfText ? PlaceOf(pass) : nullptr;
    }
    if (*at == close)
    {
        return at + 1;
    }
    for (bool isClosed = false; !isClosed && at != nullptr;)
    {
        if (isObject)
        {
            AddTo(pass.domSize, sizeof(JsonObjectElement) + SizeOfString(pass) + SizeOfValue(pass));
            at = SizeMemberStart(pass, at);
            if (at == nullptr)
            {
                return nullptr;
            }
        }
        else
        {
            AddTo(pass.domSize, sizeof(JsonArrayElement) + SizeOfValue(pass));
        }
        at = SizeValue(pass, at);
        if (at == nullptr)
        {
            return nullptr;
        }
        at = SizeSeparator(pass, at, close, isClosed);
    }
    return at;
}
} // namespace

const uint8_t* SizeString(JsonPass& pass, const uint8_t* at)
{
    const uint8_t quote = *at;
    if (!IsQuote(pass, quote))
    {
        return Fail(pass, at, JsonError::QuoteExpected);
    }
    const uint8_t* start = ++at;
    for (uint32_t dropped = 0; at != nullptr;)
    {
        at = SkipPlainCharacters(at, pass.end, quote);
        if (at == pass.end)
        {
            return Fail(pass, at, JsonError::UnexpectedEnd);
        }
        if (*at == quote)
        {
            AddText(pass, CountLeft(start, at) - dropped);
            return at + 1;
        }
        at = *at == '\\' ? SizeEscape(pass, at, dropped) : SizeControl(pass, at);
    }
    return nullptr;
}

const uint8_t* SizeContainer(JsonPass& pass, const uint8_t* at, bool withoutBraces)
{
    if (withoutBraces)
    {
        return SizeItems(pass, at, endOfText);
    }
    if (*at != '{' && *at != '[')
    {
        return Fail(pass, at, JsonError::BracketExpected);
    }
    return SizeItems(pass, at + 1, *at == '{' ? '}' : ']');
}

uint32_t SizeJson(JsonParseState& state, uint32_t withoutBraces)
{
    JsonPass pass(state);
    const uint8_t* at = SkipWhitespace(pass, PlaceOf(pass));
    if (withoutBraces != 0)
    {
        AddTo(pass.domSize, SizeOfValue(pass));
        const bool braces = at != nullptr && *at == '{';
        at = SizeContainer(pass, at != nullptr ? at : PlaceOf(pass), !braces);
    }
    else if (at != nullptr)
    {
        AddTo(pass.domSize, SizeOfValue(pass));
        at = SizeValue(pass, at);
    }
    if (at != nullptr)
    {
        StandAt(pass, at);
    }
    state = pass;
    return at != nullptr ? 0 : 1;
}
} // namespace Torvane
