#include "Shared/Foundation/BoundedFormat.h"

#include "Shared/Foundation/DecimalDigits.h"
#include "Shared/Foundation/TextOutput.h"

#include <limits.h>
#include <stdint.h>

namespace Torvane
{
namespace
{
enum class Length
{
    Default,
    Char,
    Short,
    Long,
    LongLong,
    Size,
};

struct Conversion
{
    bool left;
    bool plus;
    bool blank;
    bool zero;
    bool alternate;
    uint32_t width;
    int precision; ///< negative: none given
    Length length;
};

/// The argument list, held so that helpers can take from it.
struct Arguments
{
    va_list list;
};

template<typename Character>
bool IsSmallLetter(Character character)
{
    return character >= 'a' && character <= 'z';
}

template<typename Character>
const Character* ParseFlags(const Character* format, Conversion& conversion)
{
    for (;; ++format)
    {
        switch (*format)
        {
        case '-':
            conversion.left = true;
            break;
        case '+':
            conversion.plus = true;
            break;
        case ' ':
            conversion.blank = true;
            break;
        case '0':
            conversion.zero = true;
            break;
        case '#':
            conversion.alternate = true;
            break;
        default:
            return format;
        }
    }
}

template<typename Character>
const Character* ParseNumber(const Character* format, int& number)
{
    number = 0;
    while (*format >= '0' && *format <= '9')
    {
        number = number * 10 + (*format++ - '0');
    }
    return format;
}

template<typename Character>
const Character* ParseWidthAndPrecision(const Character* format, Conversion& conversion, Arguments& arguments)
{
    int width = 0;
    if (*format == '*')
    {
        width = va_arg(arguments.list, int);
        ++format;
    }
    else
    {
        format = ParseNumber(format, width);
    }
    if (width < 0)
    {
        conversion.left = true;
        conversion.width = 0u - static_cast<uint32_t>(width);
    }
    else
    {
        conversion.width = static_cast<uint32_t>(width);
    }
    if (*format == '.')
    {
        ++format;
        if (*format == '*')
        {
            conversion.precision = va_arg(arguments.list, int);
            ++format;
        }
        else
        {
            format = ParseNumber(format, conversion.precision);
        }
    }
    return format;
}

template<typename Character>
const Character* ParseLength(const Character* format, Conversion& conversion)
{
    switch (*format)
    {
    case 'h':
        conversion.length = format[1] == 'h' ? Length::Char : Length::Short;
        return format + (format[1] == 'h' ? 2 : 1);
    case 'l':
        conversion.length = format[1] == 'l' ? Length::LongLong : Length::Long;
        return format + (format[1] == 'l' ? 2 : 1);
    case 'z':
    case 't':
        conversion.length = Length::Size;
        return format + 1;
    case 'j':
        conversion.length = Length::LongLong;
        return format + 1;
    case 'I':
        if (format[1] == '6' && format[2] == '4')
        {
            conversion.length = Length::LongLong;
            return format + 3;
        }
        return format;
    default:
        return format;
    }
}

uint64_t TakeUnsigned(Arguments& arguments, Length length)
{
    switch (length)
    {
    case Length::Char:
        return static_cast<uint8_t>(va_arg(arguments.list, unsigned));
    case Length::Short:
        return static_cast<uint16_t>(va_arg(arguments.list, unsigned));
    case Length::Long:
        return va_arg(arguments.list, unsigned long);
    case Length::LongLong:
        return va_arg(arguments.list, uint64_t);
    case Length::Size:
        return va_arg(arguments.list, size_t);
    case Length::Default:
        break;
    }
    return va_arg(arguments.list, unsigned);
}

int64_t TakeSigned(Arguments& arguments, Length length)
{
    switch (length)
    {
    case Length::Char:
        return static_cast<int8_t>(va_arg(arguments.list, int));
    case Length::Short:
        return static_cast<int16_t>(va_arg(arguments.list, int));
    case Length::Long:
        return va_arg(arguments.list, long);
    case Length::LongLong:
        return va_arg(arguments.list, int64_t);
    case Length::Size:
        return va_arg(arguments.list, ptrdiff_t);
    case Length::Default:
        break;
    }
    return va_arg(arguments.list, int);
}

/// A number without its sign or prefix.
struct Digits
{
    const char* text;
    uint32_t count;
    uint32_t zerosBehind; ///< that follow the text
};

/// Writes sign or prefix, zeros and digits into the conversion's width.
template<typename Output>
void WriteNumber(Output& output, const Conversion& conversion, const char* prefix, uint32_t prefixLength,
                 const Digits& digits, bool zeroPadding)
{
    uint32_t zeros = 0;
    if (conversion.precision > 0 && static_cast<uint32_t>(conversion.precision) > digits.count &&
        !zeroPadding)
    {
        zeros = static_cast<uint32_t>(conversion.precision) - digits.count;
    }
    const uint32_t used = prefixLength + zeros + digits.count + digits.zerosBehind;
    if (used == digits.count && conversion.width <= used)
    {
        output.PutAscii(digits.text, digits.count);
        return;
    }
    const uint32_t padding = conversion.width > used ? conversion.width - used : 0;
    const bool padWithZeros = zeroPadding && !conversion.left;
    if (!conversion.left && !padWithZeros)
    {
        output.Repeat(' ', padding);
    }
    output.PutAscii(prefix, prefixLength);
    output.Repeat('0', zeros + (padWithZeros ? padding : 0));
    output.PutAscii(digits.text, digits.count);
    output.Repeat('0', digits.zerosBehind);
    if (conversion.left)
    {
        output.Repeat(' ', padding);
    }
}

template<typename Output>
void WriteInteger(Output& output, const Conversion& conversion, uint64_t value, const char* prefix,
                  uint32_t prefixLength, uint32_t base, bool upperCase)
{
    const char* digitTable = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    constexpr uint32_t capacity = 23; // 64 bits in octal, and the zero in front
    char digits[capacity];
    uint32_t first = capacity;
    // 64-bit divisions are calls on the target, and few numbers need them.
    for (; value > UINT32_MAX; value /= base)
    {
        digits[--first] = digitTable[value % base];
    }
    for (uint32_t rest = static_cast<uint32_t>(value); rest != 0; rest /= base)
    {
        digits[--first] = digitTable[rest % base];
    }
    if (first == capacity && conversion.precision != 0)
    {
        digits[--first] = '0';
    }
    if (base == 8 && conversion.alternate && (first == capacity || digits[first] != '0') &&
        conversion.precision <= static_cast<int>(capacity - first))
    {
        digits[--first] = '0';
    }
    WriteNumber(output, conversion, prefix, prefixLength, {digits + first, capacity - first, 0},
                conversion.zero && conversion.precision < 0);
}

const char* SelectSign(const Conversion& conversion, bool negative)
{
    if (negative)
    {
        return "-";
    }
    if (conversion.plus)
    {
        return "+";
    }
    return conversion.blank ? " " : "";
}

template<typename Output>
void WriteSigned(Output& output, const Conversion& conversion, int64_t value)
{
    const char* sign = SelectSign(conversion, value < 0);
    const uint64_t magnitude =
        value < 0 ? uint64_t{0} - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    WriteInteger(output, conversion, magnitude, sign, sign[0] != 0 ? 1 : 0, 10, false);
}

template<typename Output>
void WriteHexadecimal(Output& output, const Conversion& conversion, uint64_t value, bool upperCase)
{
    const bool prefixed = conversion.alternate && value != 0;
    WriteInteger(output, conversion, value, upperCase ? "0X" : "0x", prefixed ? 2 : 0, 16, upperCase);
}

template<typename Output>
void WritePointer(Output& output, Conversion conversion, uintptr_t value)
{
    conversion.precision = static_cast<int>(sizeof(void*) * 2);
    WriteInteger(output, conversion, value, "", 0, 16, true);
}

constexpr int defaultDecimals = 6;

template<typename Output>
void WriteDouble(Output& output, Conversion conversion, double value)
{
    uint64_t bits = 0;
    __builtin_memcpy(&bits, &value, sizeof(bits));
    const char* sign = SelectSign(conversion, (bits >> 63) != 0);
    const uint32_t signLength = sign[0] != 0 ? 1 : 0;
    char digits[maximumIntegerDigits + 1 + maximumDecimals];
    if ((bits >> 52 & 0x7FF) == 0x7FF)
    {
        conversion.precision = -1;
        WriteNumber(output, conversion, sign, signLength, {(bits << 12) != 0 ? "nan" : "inf", 3, 0}, false);
        return;
    }
    const uint32_t decimals =
        static_cast<uint32_t>(conversion.precision < 0 ? defaultDecimals : conversion.precision);
    const uint32_t exactDecimals = decimals < maximumDecimals ? decimals : maximumDecimals;
    uint32_t length = WriteDecimal(digits, (bits >> 63) != 0 ? -value : value, exactDecimals);
    if (decimals == 0 && conversion.alternate)
    {
        digits[length++] = '.';
    }
    conversion.precision = -1;
    WriteNumber(output, conversion, sign, signLength, {digits, length, decimals - exactDecimals},
                conversion.zero);
}

template<typename Output, typename Source>
void WriteText(Output& output, const Conversion& conversion, const Source* text)
{
    static constexpr Source nullText[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    const Source* source = text != nullptr ? text : nullText;
    const uint32_t length = MeasureBounded(source, static_cast<uint32_t>(conversion.precision));
    if (conversion.width <= length)
    {
        output.PutText(source, length);
        return;
    }
    const uint32_t padding = conversion.width - length;
    if (!conversion.left)
    {
        output.Repeat(conversion.zero ? '0' : ' ', padding);
    }
    output.PutText(source, length);
    if (conversion.left)
    {
        output.Repeat(' ', padding);
    }
}

template<typename Output, typename Source>
void WriteCharacter(Output& output, Conversion conversion, Source character)
{
    // A zero character is written as it is, so it can't go through a terminated text.
    const uint32_t padding = conversion.width > 1 ? conversion.width - 1 : 0;
    if (!conversion.left)
    {
        output.Repeat(conversion.zero ? '0' : ' ', padding);
    }
    output.PutText(&character, 1);
    if (conversion.left)
    {
        output.Repeat(' ', padding);
    }
}

/// Whether a text or character argument is wide: by its size letter, otherwise as the output is.
template<typename Output>
bool IsWide(const Conversion& conversion)
{
    return conversion.length == Length::Long || (conversion.length == Length::Default && Output::isWide);
}

template<typename Output>
void WriteCharacterArgument(Output& output, const Conversion& conversion, int character)
{
    if (IsWide<Output>(conversion))
    {
        return WriteCharacter(output, conversion, static_cast<wchar_t>(character));
    }
    WriteCharacter(output, conversion, static_cast<char>(character));
}

template<typename Output>
void WriteTextArgument(Output& output, const Conversion& conversion, Arguments& arguments)
{
    if (IsWide<Output>(conversion))
    {
        return WriteText(output, conversion, va_arg(arguments.list, const wchar_t*));
    }
    WriteText(output, conversion, va_arg(arguments.list, const char*));
}

/// \return whether the conversion is known.
template<typename Output>
bool Convert(Output& output, const Conversion& conversion, uint32_t letter, Arguments& arguments)
{
    switch (letter)
    {
    case 'd':
    case 'i':
        WriteSigned(output, conversion, TakeSigned(arguments, conversion.length));
        return true;
    case 'u':
        WriteInteger(output, conversion, TakeUnsigned(arguments, conversion.length), "", 0, 10, false);
        return true;
    case 'x':
    case 'X':
        WriteHexadecimal(output, conversion, TakeUnsigned(arguments, conversion.length), letter == 'X');
        return true;
    case 'o':
        WriteInteger(output, conversion, TakeUnsigned(arguments, conversion.length), "", 0, 8, false);
        return true;
    case 'p':
        WritePointer(output, conversion, reinterpret_cast<uintptr_t>(va_arg(arguments.list, void*)));
        return true;
    case 'f':
        WriteDouble(output, conversion, va_arg(arguments.list, double));
        return true;
    case 'c':
        WriteCharacterArgument(output, conversion, va_arg(arguments.list, int));
        return true;
    case 's':
        WriteTextArgument(output, conversion, arguments);
        return true;
    case '%':
        output.Repeat('%', 1);
        return true;
    default:
        return false;
    }
}

template<typename Character>
int FormatInto(Character* buffer, size_t size, const Character* format, Arguments& arguments)
{
    TextOutput<Character> output(buffer, size);
    while (*format != 0)
    {
        const Character* literal = format;
        while (*format != 0 && *format != '%')
        {
            ++format;
        }
        output.PutText(literal, static_cast<uint32_t>(format - literal));
        if (*format == 0)
        {
            break;
        }
        Conversion conversion = {};
        conversion.precision = -1;
        const Character* rest = format + 1;
        if (!IsSmallLetter(*rest)) // nearly all have nothing in front of size and letter
        {
            rest = ParseFlags(rest, conversion);
            rest = ParseWidthAndPrecision(rest, conversion, arguments);
        }
        rest = ParseLength(rest, conversion);
        if (Convert(output, conversion, static_cast<uint32_t>(*rest), arguments))
        {
            format = rest + 1;
        }
        else
        {
            output.Put(*format++);
        }
    }
    return output.Finish();
}
} // namespace

int FormatBounded(char* buffer, size_t size, const char* format, ...)
{
    va_list list;
    va_start(list, format);
    const int result = FormatBoundedV(buffer, size, format, list);
    va_end(list);
    return result;
}

int FormatBoundedV(char* buffer, size_t size, const char* format, va_list list)
{
    Arguments arguments;
    va_copy(arguments.list, list);
    const int result = FormatInto(buffer, size, format, arguments);
    va_end(arguments.list);
    return result;
}

int FormatBoundedWide(wchar_t* buffer, size_t size, const wchar_t* format, ...)
{
    va_list list;
    va_start(list, format);
    const int result = FormatBoundedWideV(buffer, size, format, list);
    va_end(list);
    return result;
}

int FormatBoundedWideV(wchar_t* buffer, size_t size, const wchar_t* format, va_list list)
{
    Arguments arguments;
    va_copy(arguments.list, list);
    const int result = FormatInto(buffer, size, format, arguments);
    va_end(arguments.list);
    return result;
}
} // namespace Torvane
