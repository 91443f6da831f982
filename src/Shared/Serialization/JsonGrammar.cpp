#include "Shared/Serialization/JsonGrammar.h"

namespace Torvane
{
namespace
{
/// \param at where the comment's `/` stands.
/// \return what stands behind the comment, or null if it has no end. Lines count only if it has one.
const uint8_t* SkipBlockComment(JsonPass& pass, const uint8_t* at)
{
    const uint32_t lineNumber = pass.lineNumber;
    const uint32_t lineOffset = pass.lineOffset;
    for (at += 2; CountLeft(at, pass.end) >= 2; ++at)
    {
        if (at[0] == '*' && at[1] == '/')
        {
            return at + 2;
        }
        if (*at == '\n')
        {
            NoteLineFeed(pass, at);
        }
    }
    pass.lineNumber = lineNumber;
    pass.lineOffset = lineOffset;
    return nullptr;
}

/// Whether a `/` is the start of a comment.
bool IsComment(const JsonPass& pass, const uint8_t* at)
{
    return IsSet(pass, JsonOption::Comments) && CountLeft(at, pass.end) >= 2 &&
           (at[1] == '*' || at[1] == '/');
}

/// \param at where the comment's `/` stands.
/// \return what stands behind the comment, or null if it has no end.
__attribute__((noinline)) const uint8_t* SkipComment(JsonPass& pass, const uint8_t* at)
{
    if (at[1] == '*')
    {
        return SkipBlockComment(pass, at);
    }
    while (at != pass.end && *at != '\n')
    {
        ++at;
    }
    return at;
}

bool IsWhitespace(uint8_t character)
{
    return character == ' ' || character == '\n' || character == '\r' || character == '\t';
}

/// Goes over whitespace as long as there are whole groups.
///
/// Lines mostly begin as deep as the ones before them. The branch that asks for this is foreseen, and the
/// processor reads on behind the whitespace before it has worked out where in the group that ends.
const uint8_t* SkipWhitespaceGroups(JsonPass& pass, const uint8_t* at)
{
    while (CountLeft(at, pass.end) >= jsonGroupSize)
    {
        const __m128i group = LoadGroup(at);
        const uint32_t others = NonWhitespace(group);
        const uint32_t before = others == 0 ? 0xFFFF : (others & (0 - others)) - 1;
        for (uint32_t lineFeeds = MaskOf(MatchByte(group, '\n')) & before; lineFeeds != 0;
             lineFeeds &= lineFeeds - 1)
        {
            NoteLineFeed(pass, at + FirstOf(lineFeeds));
        }
        const uint32_t expected = 1U << pass.lastIndent;
        if ((others & (2 * expected - 1)) == expected)
        {
            return at + pass.lastIndent;
        }
        if (others != 0)
        {
            pass.lastIndent = FirstOf(others);
            return at + pass.lastIndent;
        }
        at += jsonGroupSize;
    }
    return at;
}

const uint8_t* SkipDigits(const uint8_t* at, const uint8_t* end)
{
    while (CountLeft(at, end) >= jsonGroupSize)
    {
        const uint32_t others = NonDigits(LoadGroup(at));
        if (others != 0)
        {
            return at + FirstOf(others);
        }
        at += jsonGroupSize;
    }
    while (at != end && IsDigit(*at))
    {
        ++at;
    }
    return at;
}

/// \return what stands behind the word, or null if another one stands here.
const uint8_t* SkipWord(const uint8_t* at, const uint8_t* end, const char* word)
{
    for (; *word != '\0'; ++word, ++at)
    {
        if (at == end || *at != static_cast<uint8_t>(*word))
        {
            return nullptr;
        }
    }
    return at;
}

bool IsNumberEnd(const JsonPass& pass, const uint8_t* at)
{
    if (at == pass.end || *at == ',' || *at == ']' || *at == '}')
    {
        return true;
    }
    return IsWhitespace(*at) || (*at == '/' && IsComment(pass, at));
}

const uint8_t* EndNumber(JsonPass& pass, const uint8_t* at)
{
    return IsNumberEnd(pass, at) ? at : Fail(pass, at, JsonError::BadNumber);
}

/// Goes over a sign, where one may stand.
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

constexpr uint8_t noDigit = 0xFF;

struct HexadecimalValues
{
    uint8_t of[256] = {};

    constexpr HexadecimalValues()
    {
        for (uint8_t& value : of)
        {
            value = noDigit;
        }
        for (uint8_t i = 0; i < 10; ++i)
        {
            of['0' + i] = i;
        }
        for (uint8_t i = 10; i < 16; ++i)
        {
            of['A' + i - 10] = i;
            of['a' + i - 10] = i;
        }
    }
};
constexpr HexadecimalValues hexadecimalValues;

bool IsHexadecimalNumber(const JsonPass& pass, const uint8_t* at)
{
    return IsSet(pass, JsonOption::Hexadecimal) && CountLeft(at, pass.end) >= 2 && at[0] == '0' &&
           (at[1] | 0x20) == 'x';
}

/// \param at where the number's `0x` stands.
const uint8_t* ScanHexadecimal(JsonPass& pass, const uint8_t* at)
{
    at += 2;
    const uint8_t* digits = at;
    while (at != pass.end && hexadecimalValues.of[*at] != noDigit)
    {
        ++at;
    }
    return at == digits && at != pass.end ? Fail(pass, at, JsonError::BadNumber) : EndNumber(pass, at);
}

/// \param at behind the `e`.
const uint8_t* ScanExponent(JsonPass& pass, const uint8_t* at)
{
    if (at != pass.end && (*at == '+' || *at == '-'))
    {
        ++at;
    }
    const uint8_t* digits = at;
    at = SkipDigits(at, pass.end);
    return at == digits && at != pass.end ? Fail(pass, at, JsonError::BadNumber) : EndNumber(pass, at);
}

/// From behind the sign on.
const uint8_t* ScanDecimal(JsonPass& pass, const uint8_t* at)
{
    const uint8_t* whole = at;
    at = SkipDigits(at, pass.end);
    const bool hasWholePart = at != whole;
    if (hasWholePart && *whole == '0' && at != whole + 1)
    {
        return Fail(pass, whole + 1, JsonError::BadNumber);
    }
    if (at == pass.end)
    {
        return at;
    }
    if (!hasWholePart && !(*at == '.' && IsSet(pass, JsonOption::LoosePoint)))
    {
        return Fail(pass, at, JsonError::BadNumber);
    }
    if (*at == '.')
    {
        const uint8_t* fraction = ++at;
        at = SkipDigits(at, pass.end);
        if (at == pass.end)
        {
            return at;
        }
        if (at == fraction && !(hasWholePart && IsSet(pass, JsonOption::LoosePoint)))
        {
            return Fail(pass, at, JsonError::BadNumber);
        }
    }
    return (*at | 0x20) == 'e' ? ScanExponent(pass, at + 1) : EndNumber(pass, at);
}

/// Goes over digits that may have a point among them, from behind the sign on, if they end within two groups. Both
/// ends of digits are told by one look at the groups: the second doesn't wait for the first.
/// \return null if anything else stands here, or the number is wrong.
const uint8_t* ScanPlainDecimal(const JsonPass& pass, const uint8_t* at)
{
    if (CountLeft(at, pass.end) < 2 * jsonGroupSize)
    {
        return nullptr;
    }
    const uint32_t first = NonDigits(LoadGroup(at));
    const uint32_t others = first | NonDigits(LoadGroup(at + jsonGroupSize)) << jsonGroupSize;
    const uint32_t behindFirst = others & (others - 1);
    if (behindFirst == 0)
    {
        return nullptr;
    }
    uint32_t length = FirstOf(others);
    if (length == 0 || (*at == '0' && length != 1))
    {
        return nullptr;
    }
    if (at[length] == '.')
    {
        const uint32_t fraction = length + 1;
        length = FirstOf(behindFirst);
        if (length == fraction)
        {
            return nullptr;
        }
    }
    return IsNumberEnd(pass, at + length) ? at + length : nullptr;
}

/// Options of numbers that begin with anything else than a minus sign and digits.
constexpr uint32_t extendedNumbers =
    JsonOption::LeadingPlus | JsonOption::Hexadecimal | JsonOption::InfinityAndNaN;

const uint8_t* ScanExtendedNumber(JsonPass& pass, const uint8_t* at)
{
    at = SkipSign(pass, at);
    if (at == pass.end)
    {
        return at;
    }
    if (IsSet(pass, JsonOption::InfinityAndNaN))
    {
        const uint8_t* infinity = SkipWord(at, pass.end, "Infinity");
        const uint8_t* word = infinity != nullptr ? infinity : SkipWord(at, pass.end, "NaN");
        if (word != nullptr)
        {
            return EndNumber(pass, word);
        }
    }
    return IsHexadecimalNumber(pass, at) ? ScanHexadecimal(pass, at) : ScanDecimal(pass, at);
}
} // namespace

bool ReadUnicodeEscape(const uint8_t* at, const uint8_t* end, uint32_t& unit)
{
    if (CountLeft(at, end) < unicodeEscapeLength || at[0] != '\\' || at[1] != 'u')
    {
        return false;
    }
    const uint8_t* values = hexadecimalValues.of;
    const uint32_t digits[] = {values[at[2]], values[at[3]], values[at[4]], values[at[5]]};
    unit = digits[0] << 12 | digits[1] << 8 | digits[2] << 4 | digits[3];
    return (digits[0] | digits[1] | digits[2] | digits[3]) != noDigit;
}

const uint8_t* ScanNumber(JsonPass& pass, const uint8_t* at)
{
    if ((pass.flags & extendedNumbers) != 0)
    {
        return ScanExtendedNumber(pass, at);
    }
    at += *at == '-' ? 1 : 0;
    if (at == pass.end)
    {
        return at;
    }
    const uint8_t* behind = ScanPlainDecimal(pass, at);
    return behind != nullptr ? behind : ScanDecimal(pass, at);
}

const uint8_t* SkipAnyWhitespace(JsonPass& pass, const uint8_t* at)
{
    for (;;)
    {
        at = SkipWhitespaceGroups(pass, at);
        for (; at != pass.end && IsWhitespace(*at); ++at)
        {
            if (*at == '\n')
            {
                NoteLineFeed(pass, at);
            }
        }
        if (at == pass.end)
        {
            return Fail(pass, at, JsonError::UnexpectedEnd);
        }
        if (*at != '/' || !IsComment(pass, at))
        {
            return at;
        }
        const uint8_t* behind = SkipComment(pass, at);
        if (behind == nullptr)
        {
            return Fail(pass, at, JsonError::UnexpectedEnd);
        }
        at = behind;
    }
}

uint32_t SkipJsonWhitespace(JsonParseState& state)
{
    JsonPass pass(state);
    const uint8_t* at = SkipAnyWhitespace(pass, PlaceOf(pass));
    if (at != nullptr)
    {
        StandAt(pass, at);
    }
    state = pass;
    return at != nullptr ? 0 : 1;
}
} // namespace Torvane
