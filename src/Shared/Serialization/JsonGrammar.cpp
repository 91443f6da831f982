#include "Shared/Serialization/JsonGrammar.h"

namespace Torvane
{
namespace
{
enum class CommentScan
{
    None,
    Skipped,
    Unfinished,
};

CommentScan SkipBlockComment(JsonParseState& state)
{
    const JsonParseState start = state;
    for (state.offset += 2; state.size - state.offset >= 2; ++state.offset)
    {
        if (Peek(state) == '*' && state.source[state.offset + 1] == '/')
        {
            state.offset += 2;
            return CommentScan::Skipped;
        }
        if (Peek(state) == '\n')
        {
            NoteLineFeed(state);
        }
    }
    state = start;
    return CommentScan::Unfinished;
}

/// To be called with a `/` at the state's offset.
CommentScan SkipComment(JsonParseState& state)
{
    if (!IsSet(state, JsonOption::Comments) || state.size - state.offset < 2)
    {
        return CommentScan::None;
    }
    const uint8_t kind = state.source[state.offset + 1];
    if (kind == '*')
    {
        return SkipBlockComment(state);
    }
    if (kind != '/')
    {
        return CommentScan::None;
    }
    while (!IsAtEnd(state) && Peek(state) != '\n')
    {
        ++state.offset;
    }
    return CommentScan::Skipped;
}

/// \return how many there were.
uint32_t SkipDigits(JsonParseState& state)
{
    const uint32_t start = state.offset;
    while (!IsAtEnd(state) && IsDigit(Peek(state)))
    {
        ++state.offset;
    }
    return state.offset - start;
}

bool SkipWord(JsonParseState& state, const char* word)
{
    uint32_t offset = state.offset;
    for (; *word != '\0'; ++word, ++offset)
    {
        if (offset >= state.size || state.source[offset] != static_cast<uint8_t>(*word))
        {
            return false;
        }
    }
    state.offset = offset;
    return true;
}

bool IsAtNumberEnd(const JsonParseState& state)
{
    if (IsAtEnd(state))
    {
        return true;
    }
    switch (Peek(state))
    {
    case '\t':
    case '\n':
    case '\r':
    case ' ':
    case ',':
    case ']':
    case '}':
        return true;
    case '/':
    {
        JsonParseState ahead = state;
        return SkipComment(ahead) != CommentScan::None;
    }
    default:
        return false;
    }
}

/// Goes over a sign, where one may stand.
void SkipSign(JsonParseState& state)
{
    const uint8_t character = Peek(state);
    if (character == '-' || (character == '+' && IsSet(state, JsonOption::LeadingPlus)))
    {
        ++state.offset;
    }
    else if (character == '+' && IsSet(state, JsonOption::InfinityAndNaN) && state.size - state.offset >= 2)
    {
        const uint8_t next = state.source[state.offset + 1];
        state.offset += next == 'I' || next == 'N' ? 1 : 0;
    }
}

bool IsAtHexadecimal(const JsonParseState& state)
{
    return IsSet(state, JsonOption::Hexadecimal) && state.size - state.offset >= 2 && Peek(state) == '0' &&
           (state.source[state.offset + 1] | 0x20) == 'x';
}

bool ScanHexadecimal(JsonParseState& state)
{
    state.offset += 2;
    if (!IsAtEnd(state) && HexadecimalValue(Peek(state)) < 0)
    {
        return false;
    }
    while (!IsAtEnd(state) && HexadecimalValue(Peek(state)) >= 0)
    {
        ++state.offset;
    }
    return IsAtNumberEnd(state);
}

/// \return whether the exponent, if one stands here, is right.
bool ScanExponent(JsonParseState& state)
{
    if ((Peek(state) | 0x20) != 'e')
    {
        return true;
    }
    ++state.offset;
    if (!IsAtEnd(state) && (Peek(state) == '+' || Peek(state) == '-'))
    {
        ++state.offset;
    }
    return IsAtEnd(state) || SkipDigits(state) != 0;
}

/// \return whether the point, if one stands here, is right.
bool ScanFraction(JsonParseState& state, bool hasWholePart)
{
    if (Peek(state) != '.')
    {
        return true;
    }
    ++state.offset;
    return IsAtEnd(state) || SkipDigits(state) != 0 || (hasWholePart && IsSet(state, JsonOption::LoosePoint));
}

bool ScanDecimal(JsonParseState& state)
{
    const bool startsWithZero = Peek(state) == '0';
    state.offset += startsWithZero ? 1 : 0;
    if (startsWithZero && !IsAtEnd(state) && IsDigit(Peek(state)))
    {
        return false;
    }
    const bool hasWholePart = startsWithZero || SkipDigits(state) != 0;
    if (IsAtEnd(state))
    {
        return true;
    }
    if (!hasWholePart && !(Peek(state) == '.' && IsSet(state, JsonOption::LoosePoint)))
    {
        return false;
    }
    if (!ScanFraction(state, hasWholePart))
    {
        return false;
    }
    if (IsAtEnd(state))
    {
        return true;
    }
    return ScanExponent(state) && IsAtNumberEnd(state);
}
} // namespace

bool IsNumberStart(const JsonParseState& state, uint8_t character)
{
    switch (character)
    {
    case '-':
        return true;
    case '+':
        return IsSet(state, JsonOption::LeadingPlus) || IsSet(state, JsonOption::InfinityAndNaN);
    case '.':
        return IsSet(state, JsonOption::LoosePoint);
    case 'I':
    case 'N':
        return IsSet(state, JsonOption::InfinityAndNaN);
    default:
        return IsDigit(character);
    }
}

int32_t HexadecimalValue(uint8_t character)
{
    if (IsDigit(character))
    {
        return character - '0';
    }
    const uint8_t lower = character | 0x20;
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool ReadUnicodeEscape(const JsonParseState& state, uint32_t offset, uint32_t& unit)
{
    if (offset > state.size || state.size - offset < unicodeEscapeLength || state.source[offset] != '\\' ||
        state.source[offset + 1] != 'u')
    {
        return false;
    }
    uint32_t value = 0;
    for (uint32_t i = 2; i < unicodeEscapeLength; ++i)
    {
        const int32_t digit = HexadecimalValue(state.source[offset + i]);
        if (digit < 0)
        {
            return false;
        }
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    unit = value;
    return true;
}

bool ScanNumber(JsonParseState& state)
{
    SkipSign(state);
    if (IsAtEnd(state))
    {
        return true;
    }
    if (IsSet(state, JsonOption::InfinityAndNaN) && (SkipWord(state, "Infinity") || SkipWord(state, "NaN")))
    {
        return IsAtNumberEnd(state);
    }
    if (IsAtHexadecimal(state))
    {
        return ScanHexadecimal(state);
    }
    return ScanDecimal(state);
}

uint32_t SkipJsonWhitespace(JsonParseState& state)
{
    while (!IsAtEnd(state))
    {
        switch (Peek(state))
        {
        case '\n':
            NoteLineFeed(state);
            ++state.offset;
            break;
        case '\t':
        case '\r':
        case ' ':
            ++state.offset;
            break;
        case '/':
            switch (SkipComment(state))
            {
            case CommentScan::None:
                return 0;
            case CommentScan::Skipped:
                break;
            case CommentScan::Unfinished:
                state.error = JsonError::UnexpectedEnd;
                return 1;
            }
            break;
        default:
            return 0;
        }
    }
    state.error = JsonError::UnexpectedEnd;
    return 1;
}
} // namespace Torvane
