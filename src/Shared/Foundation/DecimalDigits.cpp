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
class FixedPoint
{
public:
    /// IEEE 754 binary64: 52 bits of fraction, 11 of exponent with a bias of 1023.
    explicit FixedPoint(double value)
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
        words[word] = static_cast<uint32_t>(mantissa << bit);
        words[word + 1] = static_cast<uint32_t>((mantissa << bit) >> wordBits);
        if (bit != 0)
        {
            words[word + 2] = static_cast<uint32_t>((mantissa >> (wordBits - bit)) >> wordBits);
        }
        first = word;
        end = word + 2 + (bit != 0 ? 1 : 0);
    }

    /// Divides the integer part by ten. \return the remainder.
    uint32_t TakeIntegerDigit()
    {
        uint32_t remainder = 0;
        for (uint32_t i = end; i-- > fractionWords;)
        {
            const uint64_t dividend = uint64_t{remainder} << wordBits | words[i];
            words[i] = static_cast<uint32_t>(dividend / 10);
            remainder = static_cast<uint32_t>(dividend % 10);
        }
        while (end > fractionWords && words[end - 1] == 0)
        {
            --end;
        }
        return remainder;
    }

    bool IsIntegerZero() const
    {
        return end <= fractionWords;
    }

    /// Multiplies the fraction by ten. \return the digit that moves in front of the point.
    uint32_t TakeFractionDigit()
    {
        uint64_t carry = 0;
        for (uint32_t i = first; i < fractionWords; ++i)
        {
            carry += uint64_t{words[i]} * 10;
            words[i] = static_cast<uint32_t>(carry);
            carry >>= wordBits;
        }
        return static_cast<uint32_t>(carry);
    }

    /// \return negative, 0 or positive as the fraction is below, at or above one half.
    int CompareFractionWithHalf() const
    {
        constexpr uint32_t half = 0x80000000u;
        const uint32_t top = words[fractionWords - 1];
        if (top != half)
        {
            return top < half ? -1 : 1;
        }
        for (uint32_t i = first; i + 1 < fractionWords; ++i)
        {
            if (words[i] != 0)
            {
                return 1;
            }
        }
        return 0;
    }

private:
    uint32_t words[fractionWords + integerWords + 1] = {};
    uint32_t first;
    uint32_t end;
};

/// A number whose integer part fits into 32 bits and its fraction into 64, as times and most others do.
class SmallFixedPoint
{
public:
    /// \param value 0, or from 2^-12 to below 2^32.
    static bool Holds(double value)
    {
        return value == 0 || (value >= 0x1p-12 && value < 0x1p32);
    }

    explicit SmallFixedPoint(double value)
    {
        if (value == 0)
        {
            return;
        }
        uint64_t bits = 0;
        memcpy(&bits, &value, sizeof(bits));
        const int32_t exponent = static_cast<int32_t>(bits >> 52) - 1023;
        const uint64_t mantissa = (bits & 0xFFFFFFFFFFFFFu) | uint64_t{1} << 52;
        integer = exponent < 0 ? 0 : static_cast<uint32_t>(mantissa >> (52 - exponent));
        fraction = mantissa << (12 + exponent);
    }

    uint32_t TakeIntegerDigit()
    {
        const uint32_t digit = integer % 10;
        integer /= 10;
        return digit;
    }

    bool IsIntegerZero() const
    {
        return integer == 0;
    }

    uint32_t TakeFractionDigit()
    {
        const uint64_t low = (fraction & UINT32_MAX) * 10;
        const uint64_t high = (fraction >> wordBits) * 10 + (low >> wordBits);
        fraction = high << wordBits | (low & UINT32_MAX);
        return static_cast<uint32_t>(high >> wordBits);
    }

    int CompareFractionWithHalf() const
    {
        constexpr uint64_t half = uint64_t{1} << 63;
        return fraction == half ? 0 : fraction < half ? -1 : 1;
    }

private:
    uint32_t integer = 0;
    uint64_t fraction = 0; ///< of 2^64
};

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
template<typename Number>
uint32_t WriteNumber(char* digits, Number number, uint32_t decimals)
{
    char reversed[maximumIntegerDigits];
    uint32_t count = 0;
    do
    {
        reversed[count++] = static_cast<char>('0' + number.TakeIntegerDigit());
    }
    while (!number.IsIntegerZero());

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
        digits[length++] = static_cast<char>('0' + number.TakeFractionDigit());
    }
    const int comparison = number.CompareFractionWithHalf();
    const bool lastIsOdd = ((digits[length - 1] - '0') & 1) != 0;
    if ((comparison > 0 || (comparison == 0 && lastIsOdd)) && IncrementDigits(digits, length))
    {
        memmove(digits + 1, digits, length);
        digits[0] = '1';
        ++length;
    }
    return length;
}
} // namespace

uint32_t WriteDecimal(char* digits, double value, uint32_t decimals)
{
    if (SmallFixedPoint::Holds(value))
    {
        return WriteNumber(digits, SmallFixedPoint(value), decimals);
    }
    return WriteNumber(digits, FixedPoint(value), decimals);
}
} // namespace Torvane
