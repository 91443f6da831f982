#include "Shared/Foundation/BoundedFormat.h"

#include "Shared/Foundation/TextOutput.h"

#include <string.h>

namespace Torvane
{
namespace
{
/// The argument list, in a form that functions can take by reference.
struct Arguments
{
    va_list list;
};

/// The digits of a number, written from the last to the first.
class Digits
{
public:
    void Prepend(char character)
    {
        text[--first] = character;
    }

    /// \param minimum the number of digits that leading zeros pad to.
    void PrependNumber(uint64_t value, uint32_t base, uint32_t minimum)
    {
        constexpr char digits[] = "0123456789ABCDEF";
        const uint32_t end = first;
        // 64-bit divisions are calls on the target, and few numbers need them.
        for (; value > UINT32_MAX; value /= base)
        {
            Prepend(digits[value % base]);
        }
        for (uint32_t rest = static_cast<uint32_t>(value); rest != 0 || end - first < minimum; rest /= base)
        {
            Prepend(digits[rest % base]);
        }
    }

    const char* Get() const
    {
        return text + first;
    }

    uint32_t GetLength() const
    {
        return capacity - first;
    }

private:
    static constexpr uint32_t capacity = 21; ///< 64 bits in decimal, and a point
    char text[capacity];
    uint32_t first = capacity;
};

template<typename Character, typename Source>
void AppendPadded(TextOutput<Character>& output, const Conversion<Character>& conversion, const Source* text,
                  uint32_t length)
{
    if (conversion.width > length)
    {
        output.Repeat(conversion.hasZeros ? '0' : ' ', conversion.width - length);
    }
    output.Append(text, length);
}

template<typename Character, typename Source>
void AppendString(TextOutput<Character>& output, const Conversion<Character>& conversion, const Source* text,
                  uint32_t limit = UINT32_MAX)
{
    constexpr Source nullText[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    const Source* source = text != nullptr ? text : nullText;
    uint32_t length = 0;
    while (length < limit && source[length] != 0)
    {
        ++length;
    }
    AppendPadded(output, conversion, source, length);
}

/// Takes an argument that is a number.
void PrependArgument(Digits& digits, ConversionKind kind, Arguments& arguments)
{
    switch (kind)
    {
    case ConversionKind::Signed:
    {
        const int32_t value = va_arg(arguments.list, int32_t);
        digits.PrependNumber(value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value), 10,
                             1);
        if (value < 0)
        {
            digits.Prepend('-');
        }
        return;
    }
    case ConversionKind::Unsigned:
        return digits.PrependNumber(va_arg(arguments.list, uint32_t), 10, 1);
    case ConversionKind::Hexadecimal:
        return digits.PrependNumber(va_arg(arguments.list, uint32_t), 16, 1);
    case ConversionKind::Size:
        return digits.PrependNumber(va_arg(arguments.list, size_t), 10, 1);
    case ConversionKind::Hexadecimal64:
        return digits.PrependNumber(va_arg(arguments.list, uint64_t), 16, 1);
    case ConversionKind::Pointer:
        return digits.PrependNumber(reinterpret_cast<uintptr_t>(va_arg(arguments.list, void*)), 16,
                                    sizeof(void*) * 2);
    case ConversionKind::Hundredths:
    default:
    {
        const uint64_t hundredths = RoundToHundredths(va_arg(arguments.list, double));
        digits.PrependNumber(hundredths % 100, 10, 2);
        digits.Prepend('.');
        digits.PrependNumber(hundredths / 100, 10, 1);
    }
    }
}

template<typename Character>
void Convert(TextOutput<Character>& output, const Conversion<Character>& conversion, Arguments& arguments)
{
    switch (conversion.kind)
    {
    case ConversionKind::Unknown:
    case ConversionKind::StringLimit:
        return;
    case ConversionKind::NarrowString:
        return AppendString(output, conversion, va_arg(arguments.list, const char*));
    case ConversionKind::BoundedString:
    {
        const int limit = va_arg(arguments.list, int);
        const auto* text = va_arg(arguments.list, const Character*);
        return AppendString(output, conversion, text, static_cast<uint32_t>(limit));
    }
    case ConversionKind::WideString:
        return AppendString(output, conversion, va_arg(arguments.list, const wchar_t*));
    default:
    {
        Digits digits;
        PrependArgument(digits, conversion.kind, arguments);
        AppendPadded(output, conversion, digits.Get(), digits.GetLength());
    }
    }
}

template<typename Character>
int FormatInto(Character* buffer, size_t size, const Character* format, va_list list)
{
    Arguments arguments;
    va_copy(arguments.list, list);
    TextOutput<Character> output(buffer, size);
    while (*format != 0)
    {
        const Character* literal = format;
        while (*format != 0 && *format != '%')
        {
            ++format;
        }
        output.Append(literal, static_cast<uint32_t>(format - literal));
        if (*format == '%')
        {
            const Conversion<Character> conversion = ParseConversion(format + 1);
            Convert(output, conversion, arguments);
            format = conversion.end;
        }
    }
    va_end(arguments.list);
    return output.Finish();
}
} // namespace

uint64_t RoundToHundredths(double value)
{
    if (!(value >= 0 && value < 0x1p57))
    {
        return 0;
    }
    // IEEE 754 binary64: value = mantissa * 2^-shift. A biased exponent of 0 gives a shift that is too large either way.
    uint64_t bits = 0;
    memcpy(&bits, &value, sizeof(bits));
    const int shift = 1075 - static_cast<int>(bits >> 52 & 0x7FF);
    const uint64_t scaled = ((bits & 0xFFFFFFFFFFFFFu) | uint64_t{1} << 52) * 100; // below 2^60
    if (shift <= 0)
    {
        return scaled << -shift;
    }
    if (shift > 60)
    {
        return 0;
    }
    // Just less than half a unit is added to an even result and half a unit to an odd one.
    const uint64_t isOdd = scaled >> shift & 1;
    return (scaled + (uint64_t{1} << (shift - 1)) - 1 + isOdd) >> shift;
}

namespace Unchecked
{
int FormatBounded(char* buffer, size_t size, const char* format, ...)
{
    va_list list;
    va_start(list, format);
    const int result = FormatInto(buffer, size, format, list);
    va_end(list);
    return result;
}

int FormatBoundedV(char* buffer, size_t size, const char* format, va_list arguments)
{
    return FormatInto(buffer, size, format, arguments);
}

int FormatBoundedWideV(wchar_t* buffer, size_t size, const wchar_t* format, va_list arguments)
{
    return FormatInto(buffer, size, format, arguments);
}
} // namespace Unchecked
} // namespace Torvane
