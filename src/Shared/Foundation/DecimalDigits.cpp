#include "Shared/Foundation/DecimalDigits.h"

#include <string.h>

namespace Torvane
{
namespace
{
constexpr uint32_t wordBits = 32;
constexpr uint32_t fractionWords = 34; ///< 1088 bits: the smallest double has its bit at 1074
constexpr uint32_t integerWords = 32;  ///< 1024 bits: as many as the largest double has

/// A number in fixed point, least significant word first. All words outside of [first, end) are 0: most numbers
/// fill two or three.
struct FixedPoint
{
    uint32_t words[fractionWords + integerWords + 1];
    uint32_t first;
    uint32_t end;
};

/// IEEE 754 binary64: 52 bits of fraction, 11 of exponent with a bias of 1023.
FixedPoint Unpack(double value)
{
    uint64_t bits = 0;
    memcpy(&bits, &value, sizeof(bits));
    const uint32_t exponent = static_cast<uint32_t>(bits >> 52) & 0x7FF;
    uint64_t mantissa = bits & 0xFFFFFFFFFFFFFu;
    if (exponent != 0)
    {
        mantissa |= uint64_t{1} << 52;
    }
    // The mantissa's lowest bit has the weight 2^(max(exponent, 1) - 1075).
    const uint32_t shift = fractionWords * wordBits + (exponent != 0 ? exponent : 1) - 1075;
    const uint32_t word = shift / wordBits;
    const uint32_t bit = shift % wordBits;
    FixedPoint number = {};
    number.words[word] = static_cast<uint32_t>(mantissa << bit);
    number.words[word + 1] = static_cast<uint32_t>((mantissa << bit) >> wordBits);
    if (bit != 0)
    {
        number.words[word + 2] = static_cast<uint32_t>((mantissa >> (wordBits - bit)) >> wordBits);
    }
    number.first = word;
    number.end = word + 2 + (bit != 0 ? 1 : 0);
    return number;
}

/// Multiplies the fraction by ten. \return the digit that moves in front of the point.
uint32_t TakeFractionDigit(FixedPoint& number)
{
    uint64_t carry = 0;
    for (uint32_t i = number.first; i < fractionWords; ++i)
    {
        carry += uint64_t{number.words[i]} * 10;
        number.words[i] = static_cast<uint32_t>(carry);
        carry >>= wordBits;
    }
    return static_cast<uint32_t>(carry);
}

/// Divides the integer part by ten. \return the remainder.
uint32_t TakeIntegerDigit(FixedPoint& number)
{
    uint32_t remainder = 0;
    for (uint32_t i = number.end; i-- > fractionWords;)
    {
        uint32_t& word = number.words[i];
        const uint64_t dividend = uint64_t{remainder} << wordBits | word;
        // Mostly the integer part is one word: no reason to divide with 64 bits.
        const uint32_t quotient = remainder == 0 ? word / 10 : static_cast<uint32_t>(dividend / 10);
        remainder = static_cast<uint32_t>(dividend) - quotient * 10;
        word = quotient;
    }
    while (number.end > fractionWords && number.words[number.end - 1] == 0)
    {
        --number.end;
    }
    return remainder;
}

bool IsIntegerZero(const FixedPoint& number)
{
    return number.end <= fractionWords;
}

/// \return negative, 0 or positive as the fraction is below, at or above one half.
int CompareFractionWithHalf(const FixedPoint& number)
{
    constexpr uint32_t half = 0x80000000u;
    const uint32_t top = number.words[fractionWords - 1];
    if (top != half)
    {
        return top < half ? -1 : 1;
    }
    for (uint32_t i = number.first; i + 1 < fractionWords; ++i)
    {
        if (number.words[i] != 0)
        {
            return 1;
        }
    }
    return 0;
}

/// Adds one to the last digit. \return whether it ran over in front of the first.
bool IncrementDigits(char* digits, uint32_t count)
{
    for (uint32_t i = count; i-- > 0;)
    {
        if (digits[i] == '.')
        {
            continue;
        }
        if (digits[i] != '9')
        {
            ++digits[i];
            return false;
        }
        digits[i] = '0';
    }
    return true;
}
} // namespace

uint32_t WriteDecimal(char* digits, double value, uint32_t decimals)
{
    FixedPoint number = Unpack(value);
    char reversed[maximumIntegerDigits];
    uint32_t count = 0;
    do
    {
        reversed[count++] = static_cast<char>('0' + TakeIntegerDigit(number));
    }
    while (!IsIntegerZero(number));

    uint32_t length = 0;
    while (count > 0)
    {
        digits[length++] = reversed[--count];
    }
    if (decimals > 0)
    {
        digits[length++] = '.';
    }
    for (uint32_t i = 0; i < decimals; ++i)
    {
        digits[length++] = static_cast<char>('0' + TakeFractionDigit(number));
    }
    const int comparison = CompareFractionWithHalf(number);
    const bool lastIsOdd = ((digits[length - 1] - '0') & 1) != 0;
    if ((comparison > 0 || (comparison == 0 && lastIsOdd)) && IncrementDigits(digits, length))
    {
        memmove(digits + 1, digits, length);
        digits[0] = '1';
        ++length;
    }
    return length;
}
} // namespace Torvane
