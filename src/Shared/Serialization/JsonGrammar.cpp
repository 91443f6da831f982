#include "Shared/Serialization/JsonGrammar.h"

namespace Torvane
{
namespace
{
/// Whether a comment begins here.
bool IsComment(const JsonPass& pass, const uint8_t* at)
{
    return IsSet(pass, JsonOption::Comments) && CountLeft(at, pass.end) >= 2 && at[0] == '/' &&
           (at[1] == '*' || at[1] == '/');
}

/// Stops before the line feed that ends a line comment. A block comment without its end ends the text.
const uint8_t* SkipComment(JsonPass& pass, const uint8_t* at)
{
    if (at[1] == '/')
    {
        const void* lineFeed = memchr(at, '\n', CountLeft(at, pass.end));
        return lineFeed != nullptr ? static_cast<const uint8_t*>(lineFeed) : pass.end;
    }
    const uint8_t* close = at + 2;
    while (CountLeft(close, pass.end) >= 2 && !(close[0] == '*' && close[1] == '/'))
    {
        ++close;
    }
    if (CountLeft(close, pass.end) < 2)
    {
        pass.end = at;
        return at;
    }
    for (; at != close; ++at)
    {
        if (*at == '\n')
        {
            CountLineFeed(pass, at);
        }
    }
    return close + 2;
}

constexpr uint32_t notHexadecimal = 0xFF;

struct HexadecimalValues
{
    uint8_t of[256] = {};

    constexpr HexadecimalValues()
    {
        for (uint32_t i = 0; i < 256; ++i)
        {
            const uint32_t letter = (i | 0x20) - 'a';
            const uint32_t value = i - '0' < 10 ? i - '0' : letter < 6 ? 10 + letter : notHexadecimal;
            of[i] = static_cast<uint8_t>(value);
        }
    }
};
constexpr HexadecimalValues hexadecimalValues;

/// One `\u` with its digits.
uint32_t DecodeUnit(const uint8_t* at, const uint8_t* end)
{
    if (CountLeft(at, end) < unicodeEscapeLength || at[0] != '\\' || at[1] != 'u')
    {
        return noCharacter;
    }
    const uint8_t* values = hexadecimalValues.of;
    const uint32_t digits[] = {values[at[2]], values[at[3]], values[at[4]], values[at[5]]};
    const bool valid = (digits[0] | digits[1] | digits[2] | digits[3]) != notHexadecimal;
    return valid ? digits[0] << 12 | digits[1] << 8 | digits[2] << 4 | digits[3] : noCharacter;
}

/// Skips a sign, if one is allowed here.
const uint8_t* SkipSign(const JsonPass& pass, const uint8_t* at)
{
    if (*at == '-' || (*at == '+' && IsSet(pass, JsonOption::LeadingPlus)))
    {
        return at + 1;
    }
    if (*at == '+' && IsSet(pass, JsonOption::InfinityAndNaN) && CountLeft(at, pass.end) >= 2)
    {
        return at[1] == 'I' || at[1] == 'N' ? at + 1 : at;
    }
    return at;
}

/// Checks that a number can end at `at`: with one digit or more from `digits` on, and before what can follow it.
const uint8_t* EndNumber(JsonPass& pass, const uint8_t* digits, const uint8_t* at)
{
    const int32_t next = CharacterAt(pass, at);
    const bool isWhitespace = next == ' ' || next == '\n' || next == '\r' || next == '\t';
    const bool ends = next == ',' || next == ']' || next == '}' || isWhitespace || IsComment(pass, at);
    return next == endOfText || (ends && at != digits) ? at : Fail(pass, at, JsonError::BadNumber);
}

/// \param digits after the `0x`.
const uint8_t* CheckHexadecimal(JsonPass& pass, const uint8_t* digits)
{
    const uint8_t* at = digits;
    while (at != pass.end && hexadecimalValues.of[*at] != notHexadecimal)
    {
        ++at;
    }
    return EndNumber(pass, digits, at);
}

/// \param at after the `e`.
const uint8_t* CheckExponent(JsonPass& pass, const uint8_t* at)
{
    const int32_t sign = CharacterAt(pass, at);
    const uint8_t* digits = sign == '+' || sign == '-' ? at + 1 : at;
    return EndNumber(pass, digits, FindStop(NonDigits, digits, pass.end));
}

/// \param whole after the sign.
const uint8_t* CheckDecimal(JsonPass& pass, const uint8_t* whole)
{
    const bool loosePoint = IsSet(pass, JsonOption::LoosePoint);
    const uint8_t* at = FindStop(NonDigits, whole, pass.end);
    const bool hasWholePart = at != whole;
    if (hasWholePart && *whole == '0' && at != whole + 1)
    {
        return Fail(pass, whole + 1, JsonError::BadNumber);
    }
    if (!hasWholePart && !(loosePoint && CharacterAt(pass, at) == '.'))
    {
        return EndNumber(pass, whole, at);
    }
    if (CharacterAt(pass, at) == '.')
    {
        const uint8_t* fraction = at + 1;
        at = FindStop(NonDigits, fraction, pass.end);
        if (at == fraction && !(loosePoint && hasWholePart))
        {
            return EndNumber(pass, fraction, at);
        }
    }
    const int32_t next = CharacterAt(pass, at);
    return next == 'e' || next == 'E' ? CheckExponent(pass, at + 1) : EndNumber(pass, whole, at);
}
} // namespace

const uint8_t* SkipAnyWhitespace(JsonPass& pass, const uint8_t* at)
{
    for (;;)
    {
        while (CharacterAt(pass, at) == '\n')
        {
            CountLineFeed(pass, at++);
        }
        at = FindStop(NonBlanks, at, pass.end);
        if (IsComment(pass, at))
        {
            at = SkipComment(pass, at);
        }
        else if (CharacterAt(pass, at) != '\n')
        {
            return at;
        }
    }
}

uint32_t SkipJsonWhitespace(JsonParseState& state)
{
    JsonPass pass(state);
    const uint8_t* at = SkipAnyWhitespace(pass, state.source + state.offset);
    const bool reachedEnd = at == pass.end;
    if (reachedEnd)
    {
        pass.error = JsonError::UnexpectedEnd;
    }
    pass.offset = CountLeft(pass.source, at);
    state = pass;
    return reachedEnd ? 1 : 0;
}

uint32_t DecodeUnicodeEscape(const uint8_t* at, const uint8_t* end)
{
    const uint32_t unit = DecodeUnit(at, end);
    if (unit < 0xD800 || unit > 0xDFFF)
    {
        return unit;
    }
    const uint32_t low = unit < 0xDC00 ? DecodeUnit(at + unicodeEscapeLength, end) : noCharacter;
    return low >= 0xDC00 && low <= 0xDFFF ? 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00) : noCharacter;
}

bool IsExtendedNumberStart(const JsonPass& pass, int32_t character)
{
    switch (character)
    {
    case '+':
        return IsSet(pass, JsonOption::LeadingPlus) || IsSet(pass, JsonOption::InfinityAndNaN);
    case '.':
        return IsSet(pass, JsonOption::LoosePoint);
    case 'I':
    case 'N':
        return IsSet(pass, JsonOption::InfinityAndNaN);
    default:
        return false;
    }
}

const uint8_t* CheckNumber(JsonPass& pass, const uint8_t* at)
{
    at = SkipSign(pass, at);
    if (IsSet(pass, JsonOption::InfinityAndNaN) && IsWord(at, pass.end, "Infinity"))
    {
        return EndNumber(pass, at, at + 8);
    }
    if (IsSet(pass, JsonOption::InfinityAndNaN) && IsWord(at, pass.end, "NaN"))
    {
        return EndNumber(pass, at, at + 3);
    }
    const bool hexadecimal = IsSet(pass, JsonOption::Hexadecimal) && CountLeft(at, pass.end) >= 2 &&
                             at[0] == '0' && (at[1] | 0x20) == 'x';
    return hexadecimal ? CheckHexadecimal(pass, at + 2) : CheckDecimal(pass, at);
}
} // namespace Torvane
