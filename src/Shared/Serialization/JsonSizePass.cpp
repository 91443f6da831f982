#include "Shared/Serialization/JsonGrammar.h"

#include <stddef.h>

namespace Torvane
{
namespace
{
bool Fail(JsonParseState& state, JsonError::Value error)
{
    state.error = error;
    return false;
}

void AddTo(uint32_t& size, size_t more)
{
    size = more > UINT32_MAX - size ? UINT32_MAX : size + static_cast<uint32_t>(more);
}

template<typename Plain, typename Placed>
void AddPlaceable(JsonParseState& state)
{
    AddTo(state.domSize, IsSet(state, JsonOption::RecordPositions) ? sizeof(Placed) : sizeof(Plain));
}

void AddString(JsonParseState& state)
{
    AddPlaceable<JsonString, JsonPlacedString>(state);
}

void AddText(JsonParseState& state, uint32_t length)
{
    AddTo(state.dataSize, size_t{length} + 1);
}

/// From a backslash on.
bool SizeUnicodeEscape(JsonParseState& state, uint32_t& length)
{
    uint32_t unit = 0;
    if (!ReadUnicodeEscape(state, state.offset, unit) || IsLowSurrogate(unit))
    {
        return Fail(state, JsonError::BadEscape);
    }
    if (!IsHighSurrogate(unit))
    {
        state.offset += unicodeEscapeLength;
        length += unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
        return true;
    }
    if (!ReadUnicodeEscape(state, state.offset + unicodeEscapeLength, unit) || !IsLowSurrogate(unit))
    {
        return Fail(state, JsonError::BadEscape);
    }
    state.offset += 2 * unicodeEscapeLength;
    length += 4;
    return true;
}

/// From a backslash on.
bool SizeEscape(JsonParseState& state, uint32_t& length)
{
    if (state.size - state.offset < 2)
    {
        state.offset = state.size;
        return Fail(state, JsonError::UnexpectedEnd);
    }
    switch (state.source[state.offset + 1])
    {
    case '"':
    case '/':
    case '\\':
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
        state.offset += 2;
        ++length;
        return true;
    case 'u':
        return SizeUnicodeEscape(state, length);
    case '\n':
    case '\r':
        if (!IsSet(state, JsonOption::LineBreaksInStrings))
        {
            return Fail(state, JsonError::BadEscape);
        }
        ++state.offset; // The line break itself comes next, as a raw one.
        return true;
    default:
        return Fail(state, JsonError::BadEscape);
    }
}

bool SizeUnquotedName(JsonParseState& state)
{
    const uint32_t start = state.offset;
    while (!IsAtEnd(state) && IsNameCharacter(Peek(state)))
    {
        ++state.offset;
    }
    AddText(state, state.offset - start);
    return state.offset != start;
}

bool SizeName(JsonParseState& state)
{
    AddTo(state.domSize, sizeof(JsonObjectElement));
    AddString(state);
    const bool unquoted = IsSet(state, JsonOption::UnquotedNames) && !IsQuote(state, Peek(state));
    const bool accepted = unquoted ? SizeUnquotedName(state) : SizeString(state);
    return accepted || Fail(state, JsonError::BadString);
}

/// A member's name and its colon, up to its value.
bool SizeMemberStart(JsonParseState& state)
{
    if (!SizeName(state) || SkipJsonWhitespace(state) != 0)
    {
        return false;
    }
    if (Peek(state) != ':' && !(Peek(state) == '=' && IsSet(state, JsonOption::EqualsSign)))
    {
        return Fail(state, JsonError::ColonExpected);
    }
    ++state.offset;
    return SkipJsonWhitespace(state) == 0;
}

bool SizeElementStart(JsonParseState& state)
{
    AddTo(state.domSize, sizeof(JsonArrayElement));
    return true;
}

/// What closes an object without braces, in place of a character.
constexpr int32_t endOfText = -1;

enum class Separation
{
    Another,
    Closed,
    Failed,
};

/// What stands behind a member's or an element's value, up to the next one or beyond the closing bracket.
Separation SizeSeparator(JsonParseState& state, int32_t close)
{
    const Separation atEnd = close == endOfText ? Separation::Closed : Separation::Failed;
    if (SkipJsonWhitespace(state) != 0)
    {
        return atEnd;
    }
    const bool comma = Peek(state) == ',';
    if (comma)
    {
        ++state.offset;
        const bool reachedEnd = SkipJsonWhitespace(state) != 0;
        if (!IsSet(state, JsonOption::TrailingComma))
        {
            // A closing bracket here is found out as a bad name or value.
            return reachedEnd ? Separation::Failed : Separation::Another;
        }
        if (reachedEnd)
        {
            return atEnd;
        }
    }
    if (Peek(state) == close)
    {
        ++state.offset;
        return Separation::Closed;
    }
    if (!comma && !IsSet(state, JsonOption::NoCommas))
    {
        Fail(state, JsonError::CommaExpected);
        return Separation::Failed;
    }
    return Separation::Another;
}

bool SizeWord(JsonParseState& state, const char* word)
{
    const uint32_t start = state.offset;
    for (; *word != '\0'; ++word, ++state.offset)
    {
        if (IsAtEnd(state) || Peek(state) != static_cast<uint8_t>(*word))
        {
            state.offset = start;
            return Fail(state, JsonError::BadValue);
        }
    }
    return true;
}

bool SizeNumber(JsonParseState& state)
{
    const uint32_t start = state.offset;
    if (!ScanNumber(state))
    {
        return Fail(state, JsonError::BadNumber);
    }
    AddTo(state.domSize, sizeof(JsonNumber));
    AddText(state, state.offset - start);
    return true;
}

/// A value that holds no others.
bool SizeScalar(JsonParseState& state)
{
    const uint8_t character = Peek(state);
    if (IsQuote(state, character))
    {
        AddString(state);
        return SizeString(state);
    }
    if (IsNumberStart(state, character))
    {
        return SizeNumber(state);
    }
    switch (character)
    {
    case 't':
        return SizeWord(state, "true");
    case 'f':
        return SizeWord(state, "false");
    case 'n':
        return SizeWord(state, "null");
    default:
        return Fail(state, JsonError::BadValue);
    }
}

bool SizeValue(JsonParseState& state)
{
    AddPlaceable<JsonValue, JsonPlacedValue>(state);
    const uint8_t character = Peek(state);
    return character == '[' || character == '{' ? SizeContainer(state, false) : SizeScalar(state);
}
} // namespace

bool SizeString(JsonParseState& state)
{
    const uint8_t quote = Peek(state);
    if (!IsQuote(state, quote))
    {
        return Fail(state, JsonError::QuoteExpected);
    }
    uint32_t length = 0;
    for (++state.offset; !IsAtEnd(state);)
    {
        const uint8_t character = Peek(state);
        if (character == quote)
        {
            ++state.offset;
            AddText(state, length);
            return true;
        }
        switch (character)
        {
        case '\0':
        case '\t':
            return Fail(state, JsonError::BadString);
        case '\\':
            if (!SizeEscape(state, length))
            {
                return false;
            }
            continue;
        case '\n':
        case '\r':
            if (!IsSet(state, JsonOption::LineBreaksInStrings))
            {
                return Fail(state, JsonError::BadEscape);
            }
            if (character == '\n')
            {
                NoteLineFeed(state);
            }
            break;
        default:
            break;
        }
        ++state.offset;
        ++length;
    }
    return Fail(state, JsonError::UnexpectedEnd);
}

bool SizeContainer(JsonParseState& state, bool withoutBraces)
{
    bool isObject = withoutBraces;
    if (!withoutBraces)
    {
        isObject = Peek(state) == '{';
        if (!isObject && Peek(state) != '[')
        {
            return Fail(state, JsonError::BracketExpected);
        }
        ++state.offset;
    }
    AddTo(state.domSize, isObject ? sizeof(JsonObject) : sizeof(JsonArray));
    const int32_t close = withoutBraces ? endOfText : isObject ? '}' : ']';
    if (SkipJsonWhitespace(state) != 0)
    {
        return close == endOfText;
    }
    if (Peek(state) == close)
    {
        ++state.offset;
        return true;
    }
    for (;;)
    {
        if (isObject ? !SizeMemberStart(state) : !SizeElementStart(state))
        {
            return false;
        }
        if (!SizeValue(state))
        {
            return false;
        }
        const Separation separation = SizeSeparator(state, close);
        if (separation != Separation::Another)
        {
            return separation == Separation::Closed;
        }
    }
}

uint32_t SizeJson(JsonParseState& state, uint32_t withoutBraces)
{
    const bool reachedEnd = SkipJsonWhitespace(state) != 0;
    if (withoutBraces != 0)
    {
        AddPlaceable<JsonValue, JsonPlacedValue>(state);
        const bool braces = !reachedEnd && Peek(state) == '{';
        return SizeContainer(state, !braces) ? 0 : 1;
    }
    return !reachedEnd && SizeValue(state) ? 0 : 1;
}
} // namespace Torvane
