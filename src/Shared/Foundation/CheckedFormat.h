#pragma once

/// \file
/// The conversions of our formats, and the type of a format that the compiler has checked against its arguments.
///
/// | Conversion    | Argument                                                        |
/// | ------------- | --------------------------------------------------------------- |
/// | `%d`          | signed 32-bit integer                                           |
/// | `%u`          | unsigned 32-bit integer                                         |
/// | `%zu`         | `size_t`                                                        |
/// | `%X`, `%llX`  | 32-bit and 64-bit integer, as upper-case hexadecimal digits     |
/// | `%p`          | pointer, as upper-case hexadecimal digits of its full width     |
/// | `%.2f`        | `double`, with two decimals (see `RoundToHundredths`)           |
/// | `%hs`, `%ls`  | zero-terminated `char` and `wchar_t` string                     |
/// | `%s`          | zero-terminated string of the format's own character type       |
/// | `%.*s`        | `int` and such a string, of which no more than that many characters are read |
///
/// Each can have a minimum width, to which blanks on the left pad it, or zeros if the width of `%X` or `%llX` begins
/// with 0. Nothing else compiles. A UTF-16 format takes no `%hs`.

#include <stddef.h>
#include <stdint.h>
#include <type_traits>

namespace Torvane
{
enum class ConversionKind : uint8_t
{
    Unknown,
    Signed,
    Unsigned,
    Size,
    Hexadecimal,
    Hexadecimal64,
    Pointer,
    Hundredths,
    NarrowString,
    WideString,
    BoundedString,
    StringLimit, ///< the first argument of `BoundedString`, not a conversion of its own
};

struct ConversionSpelling
{
    const char* letters;
    ConversionKind kind;
};

template<typename Character>
inline constexpr ConversionKind ownStringKind =
    std::is_same_v<Character, char> ? ConversionKind::NarrowString : ConversionKind::WideString;

template<typename Character>
inline constexpr ConversionSpelling conversionSpellings[] = {
    {"d", ConversionKind::Signed},          {"u", ConversionKind::Unsigned},
    {"zu", ConversionKind::Size},           {"X", ConversionKind::Hexadecimal},
    {"llX", ConversionKind::Hexadecimal64}, {"p", ConversionKind::Pointer},
    {".2f", ConversionKind::Hundredths},    {"hs", ConversionKind::NarrowString},
    {"ls", ConversionKind::WideString},     {"s", ownStringKind<Character>},
    {".*s", ConversionKind::BoundedString},
};

template<typename Character>
struct Conversion
{
    ConversionKind kind;
    bool hasZeros; ///< whether zeros pad it instead of blanks
    uint32_t width;
    const Character* end; ///< after its last letter
};

/// \param text the characters after a percent sign.
template<typename Character>
constexpr Conversion<Character> ParseConversion(const Character* text)
{
    Conversion<Character> conversion = {ConversionKind::Unknown, *text == '0', 0, text};
    for (; *text >= '0' && *text <= '9'; ++text)
    {
        conversion.width = conversion.width * 10 + static_cast<uint32_t>(*text - '0');
    }
    for (const ConversionSpelling& spelling : conversionSpellings<Character>)
    {
        uint32_t length = 0;
        while (spelling.letters[length] != 0 &&
               text[length] == static_cast<Character>(spelling.letters[length]))
        {
            ++length;
        }
        if (spelling.letters[length] == 0)
        {
            conversion.kind = spelling.kind;
            conversion.end = text + length;
            break;
        }
    }
    return conversion;
}

template<typename Character, typename Argument>
constexpr bool AcceptsArgument(ConversionKind kind)
{
    using Kind = ConversionKind;
    constexpr bool is32 = std::is_integral_v<Argument> && sizeof(Argument) == sizeof(uint32_t);
    constexpr bool is64 = std::is_integral_v<Argument> && sizeof(Argument) == sizeof(uint64_t);
    constexpr bool isPointer = std::is_pointer_v<Argument> || std::is_null_pointer_v<Argument>;
    constexpr bool isNarrow = std::is_same_v<Character, char> && std::is_same_v<Argument, const char*>;
    return (kind == Kind::Signed && is32 && std::is_signed_v<Argument>) ||
           (kind == Kind::Unsigned && is32 && std::is_unsigned_v<Argument>) ||
           (kind == Kind::Size && std::is_same_v<Argument, size_t>) || (kind == Kind::Hexadecimal && is32) ||
           (kind == Kind::Hexadecimal64 && is64) || (kind == Kind::Pointer && isPointer) ||
           (kind == Kind::Hundredths && std::is_same_v<Argument, double>) ||
           (kind == Kind::NarrowString && isNarrow) ||
           (kind == Kind::WideString && std::is_same_v<Argument, const wchar_t*>) ||
           (kind == Kind::BoundedString && std::is_same_v<Argument, const Character*>) ||
           (kind == Kind::StringLimit && std::is_same_v<Argument, int>);
}

/// \return whether the format has exactly the conversions that these arguments need, in their order.
template<typename Character, typename... Arguments>
constexpr bool FormatFits(const Character* format)
{
    constexpr size_t count = sizeof...(Arguments);
    constexpr bool (*accepts[count + 1])(ConversionKind) = {&AcceptsArgument<Character, Arguments>...,
                                                            nullptr};
    size_t used = 0;
    while (*format != 0)
    {
        if (*format++ != '%')
        {
            continue;
        }
        const Conversion<Character> conversion = ParseConversion(format);
        format = conversion.end;
        const bool isHexadecimal = conversion.kind == ConversionKind::Hexadecimal ||
                                   conversion.kind == ConversionKind::Hexadecimal64;
        if (conversion.hasZeros && !isHexadecimal)
        {
            return false;
        }
        if (conversion.kind == ConversionKind::BoundedString &&
            (used == count || !accepts[used++](ConversionKind::StringLimit)))
        {
            return false;
        }
        if (used == count || !accepts[used++](conversion.kind))
        {
            return false;
        }
    }
    return used == count;
}

/// A format in static storage that fits arguments of these types. It converts from a literal, and from nothing that
/// isn't known to the compiler; a format that doesn't fit doesn't convert.
template<typename Character, typename... Arguments>
class BasicCheckedFormat
{
public:
    constexpr BasicCheckedFormat(const Character* literal)
        __attribute__((enable_if(FormatFits<Character, Arguments...>(literal),
                                 "the format doesn't fit its arguments")))
        : text(literal)
    {
    }

    constexpr const Character* Get() const
    {
        return text;
    }

private:
    const Character* text;
};

template<typename... Arguments>
using CheckedFormat = BasicCheckedFormat<char, Arguments...>;

template<typename... Arguments>
using CheckedWideFormat = BasicCheckedFormat<wchar_t, Arguments...>;

/// The type that a format takes for an argument: what a pointer points to is constant.
template<typename Argument>
struct FormatArgument
{
    using Type = Argument;
};

template<typename Pointee>
struct FormatArgument<Pointee*>
{
    using Type = const Pointee*;
};

/// The format of a function whose further parameters are `Arguments... arguments`.
template<typename... Arguments>
using FormatOf = CheckedFormat<typename FormatArgument<Arguments>::Type...>;

template<typename... Arguments>
using WideFormatOf = CheckedWideFormat<typename FormatArgument<Arguments>::Type...>;
} // namespace Torvane
