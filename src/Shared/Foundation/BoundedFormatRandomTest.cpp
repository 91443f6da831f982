#include "Shared/Foundation/BoundedFormat.h"

#include <gtest/gtest.h>
#include <math.h>
#include <random>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <type_traits>
#include <vector>

// One seed is one comparison with the runtime's printf. A failure prints its seed; TORVANE_TEST_SEED=<seed> in the
// environment makes the seeds begin there instead of at a place that differs from run to run.

namespace Torvane
{
namespace
{
constexpr uint32_t comparisons = 20000; ///< per test
constexpr size_t bufferSize = 2048;     ///< holds the longest double with the largest width

uint64_t FirstSeed()
{
    if (const char* chosen = getenv("TORVANE_TEST_SEED"))
    {
        return strtoull(chosen, nullptr, 0);
    }
    std::random_device device;
    return uint64_t{device()} << 32 | device();
}

/// What a kind of conversion may have between the percent sign and its letter.
struct Choice
{
    const char* flags;
    uint32_t maximumPrecision; ///< 0: no precision at all
    bool precisionEndsZeros;   ///< whether the flag 0 counts for nothing beside a precision
};

// Left out on the target, where Wine's runtime departs from the platform's: a negative precision in an argument, the
// flag 0 beside an integer's precision, signs of unsigned numbers, alternate octal zeros, the size hh, and doubles
// halfway between two texts, of which that runtime takes the greater and not the even one.
#ifdef _WIN32
constexpr bool isPlatformsRuntime = true;
constexpr Choice signedChoice = {"-+ 0", 40, true};
constexpr Choice unsignedChoice = {"-0", 40, true};
constexpr Choice octalChoice = {"-0", 40, true};
constexpr Choice hexadecimalChoice = {"-0#", 40, true};
#else
constexpr bool isPlatformsRuntime = false;
constexpr Choice signedChoice = {"-+ 0", 40, true};
constexpr Choice unsignedChoice = {"-+ 0", 40, true};
constexpr Choice octalChoice = {"-+ 0#", 40, true};
constexpr Choice hexadecimalChoice = {"-+ 0#", 40, true};
#endif
constexpr Choice doubleChoice = {"-+ 0#", 64, false};
constexpr Choice textChoice = {"-", 70, false};
constexpr Choice plainChoice = {"-", 0, false};

/// Numbers that follow from a seed (splitmix64).
class Random
{
public:
    explicit Random(uint64_t seed)
        : state(seed)
    {
    }

    uint64_t Bits()
    {
        state += 0x9E3779B97F4A7C15u;
        uint64_t mixed = state;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
        return mixed ^ mixed >> 31;
    }

    uint32_t Below(uint32_t limit)
    {
        return static_cast<uint32_t>(Bits() % limit);
    }

    bool OneIn(uint32_t number)
    {
        return Below(number) == 0;
    }

    /// An integer of a random length in bits, as often negated as not.
    uint64_t Integer()
    {
        const uint32_t length = Below(65);
        const uint64_t value = length == 0 ? 0 : Bits() >> (64 - length);
        return OneIn(2) ? value : 0 - value;
    }

    /// Any double but no NaN, whose spelling is the runtime's affair.
    double Double()
    {
        switch (Below(6))
        {
        case 0: // a time
            return static_cast<double>(Bits() >> 11) / 9007199254740992.0 * 100000.0;
        case 1: // often halfway between two decimals
            return static_cast<double>(static_cast<int64_t>(Integer()) >> 40) / (1u << Below(12));
        case 2: // about to run over to the next power of ten
            return 9.9999999999 * static_cast<double>(Below(1000000)) / 1000.0;
        case 3:
            return static_cast<double>(static_cast<int64_t>(Integer()));
        case 4: // on either side of what is written the short way
            return ldexp(static_cast<double>(Bits() >> 11), -53 - 14 + static_cast<int>(Below(50)));
        default:
        {
            uint64_t bits = Bits();
            bits &= (bits >> 52 & 0x7FF) == 0x7FF ? 0xFFF0000000000000u : UINT64_MAX;
            double value = 0;
            memcpy(&value, &bits, sizeof(value));
            return value;
        }
        }
    }

private:
    uint64_t state;
};

/// A conversion up to its size letters, and the arguments of its asterisks.
struct Conversion
{
    std::string text;
    std::vector<int> stars;
    int precision; ///< negative: none
};

Conversion MakeConversion(Random& random, const Choice& choice)
{
    const bool withPrecision = choice.maximumPrecision != 0 && random.OneIn(2);
    Conversion conversion = {"%", {}, -1};
    for (const char* flag = choice.flags; *flag != 0; ++flag)
    {
        const bool leftOut = isPlatformsRuntime && withPrecision && choice.precisionEndsZeros && *flag == '0';
        if (random.OneIn(3) && !leftOut)
        {
            conversion.text += *flag;
        }
    }
    if (random.OneIn(4))
    {
        conversion.text += '*';
        conversion.stars.push_back(static_cast<int>(random.Below(80)) - 40);
    }
    else if (random.OneIn(2))
    {
        conversion.text += std::to_string(1 + random.Below(40));
    }
    if (withPrecision)
    {
        conversion.text += '.';
        if (random.OneIn(3))
        {
            const int lowest = isPlatformsRuntime ? 0 : -3;
            conversion.text += '*';
            conversion.precision = lowest + static_cast<int>(random.Below(choice.maximumPrecision + 1));
            conversion.stars.push_back(conversion.precision);
        }
        else if (random.OneIn(6))
        {
            conversion.precision = 0;
        }
        else
        {
            conversion.precision = static_cast<int>(random.Below(choice.maximumPrecision + 1));
            conversion.text += std::to_string(conversion.precision);
        }
    }
    return conversion;
}

/// Whether a value lies exactly between two texts of this many decimals: it has one binary digit more behind the point.
bool IsHalfway(double value, int decimals)
{
    return fmod(fabs(ldexp(value, decimals + 1)), 2.0) == 1.0;
}

int FormatByRuntime(char* buffer, size_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
#ifdef _WIN32
    // The C++ library's headers replace vsnprintf, and not this one, which is the runtime's own.
    const int length = _vsnprintf(buffer, size, format, arguments);
#else
    const int length = vsnprintf(buffer, size, format, arguments);
#endif
    va_end(arguments);
    return length;
}

/// Calls one of the formatters with the stars in front of the value.
template<typename Character, typename Format, typename Value>
int Call(Format format, Character* buffer, size_t size, const Character* text, const std::vector<int>& stars,
         Value value)
{
    switch (stars.size())
    {
    case 0:
        return format(buffer, size, text, value);
    case 1:
        return format(buffer, size, text, stars[0], value);
    default:
        return format(buffer, size, text, stars[0], stars[1], value);
    }
}

std::vector<wchar_t> Widen(const std::string& text)
{
    std::vector<wchar_t> wide(text.begin(), text.end());
    wide.push_back(0);
    return wide;
}

/// Compares the whole text, a text cut at a random place, and wide output. What is written is ASCII.
template<typename Value>
void Compare(Random& random, const Conversion& conversion, const std::string& letters,
             const std::string& runtimesLetters, Value value)
{
    const std::string before = random.OneIn(2) ? "" : "a%%b ";
    const std::string format = before + conversion.text + letters + "|";
    SCOPED_TRACE(format);

    char expected[bufferSize];
    const int expectedLength =
        Call(&FormatByRuntime, expected, bufferSize,
             (before + conversion.text + runtimesLetters + "|").c_str(), conversion.stars, value);
    ASSERT_GE(expectedLength, 0);
    ASSERT_LT(expectedLength, static_cast<int>(bufferSize));
    const size_t length = static_cast<size_t>(expectedLength);

    char whole[bufferSize];
    EXPECT_EQ(Call(&FormatBounded, whole, bufferSize, format.c_str(), conversion.stars, value),
              expectedLength);
    ASSERT_STREQ(whole, expected);

    const size_t size = 1 + random.Below(static_cast<uint32_t>(length) + 3);
    std::vector<char> bounded(size); // exactly as large as told, for the sanitizer to watch
    const int boundedLength =
        Call(&FormatBounded, bounded.data(), size, format.c_str(), conversion.stars, value);
    const size_t kept = size > length ? length : size - 1;
    EXPECT_EQ(boundedLength, size > length ? expectedLength : -1) << "in " << size << " bytes";
    ASSERT_EQ(std::string(bounded.data()), std::string(expected, kept)) << "in " << size << " bytes";

    if constexpr (!std::is_same_v<Value, const char*>)
    {
        std::vector<wchar_t> wide(size);
        EXPECT_EQ(Call(&FormatBoundedWide, wide.data(), size, Widen(format).data(), conversion.stars, value),
                  boundedLength);
        for (size_t i = 0; i < kept; ++i)
        {
            ASSERT_EQ(wide[i], static_cast<wchar_t>(expected[i])) << "unit " << i;
        }
        EXPECT_EQ(wide[kept], 0);
    }
}

void CompareInteger(Random& random, char letter, const Choice& choice)
{
    struct Size
    {
        const char* letters;
        const char* runtimesLetters;
    };
    static constexpr Size sizes[] = {
        {"", ""},     {"h", "h"}, {"l", "l"}, {"ll", "ll"},
        {"z", "z"},   {"t", "t"}, {"j", "j"}, {"I64", isPlatformsRuntime ? "I64" : "ll"},
        {"hh", "hh"},
    };
    const Conversion conversion = MakeConversion(random, choice);
    const uint64_t value = random.Integer();
    const uint32_t leftOut = isPlatformsRuntime ? 1 : 0;
    const Size& size = sizes[random.Below(sizeof(sizes) / sizeof(sizes[0]) - leftOut)];
    const std::string letters = size.letters + std::string(1, letter);
    const std::string runtimesLetters = size.runtimesLetters + std::string(1, letter);
    switch (size.letters[0])
    {
    case 'l':
        if (size.letters[1] == 0)
        {
            return Compare(random, conversion, letters, runtimesLetters, static_cast<unsigned long>(value));
        }
        [[fallthrough]];
    case 'j':
    case 'I':
        return Compare(random, conversion, letters, runtimesLetters, static_cast<unsigned long long>(value));
    case 'z':
    case 't':
        return Compare(random, conversion, letters, runtimesLetters, static_cast<size_t>(value));
    default:
        return Compare(random, conversion, letters, runtimesLetters, static_cast<unsigned>(value));
    }
}

/// Printable ASCII, which every encoding has.
std::string MakeText(Random& random)
{
    std::string text(random.Below(60), ' ');
    for (char& character : text)
    {
        character = static_cast<char>(' ' + random.Below(95));
    }
    return text;
}

/// Runs `compare` once for each seed, until one fails.
template<typename Body>
void ForManySeeds(Body compare)
{
    const uint64_t first = FirstSeed();
    for (uint64_t seed = first; seed - first < comparisons; ++seed)
    {
        SCOPED_TRACE("TORVANE_TEST_SEED=" + std::to_string(seed));
        Random random(seed);
        compare(random);
        if (testing::Test::HasFailure())
        {
            return;
        }
    }
}
} // namespace

TEST(BoundedFormatAtRandom, WritesSignedNumbersAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) { CompareInteger(random, random.OneIn(2) ? 'd' : 'i', signedChoice); });
}

TEST(BoundedFormatAtRandom, WritesUnsignedNumbersAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) { CompareInteger(random, 'u', unsignedChoice); });
}

TEST(BoundedFormatAtRandom, WritesHexadecimalAndOctalNumbersAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const char letter = "xXo"[random.Below(3)];
        CompareInteger(random, letter, letter == 'o' ? octalChoice : hexadecimalChoice);
    });
}

TEST(BoundedFormatAtRandom, WritesDoublesAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const Conversion conversion = MakeConversion(random, doubleChoice);
        double value = random.Double();
        while (isPlatformsRuntime && IsHalfway(value, conversion.precision < 0 ? 6 : conversion.precision))
        {
            value = random.Double();
        }
        Compare(random, conversion, "f", "f", value);
    });
}

TEST(BoundedFormatAtRandom, WritesPointersAsTheRuntimeDoes)
{
    // Another platform's runtime spells pointers otherwise, so there they are compared as numbers.
    const char* runtimesLetters = isPlatformsRuntime ? "p" : ".16lX";
    ForManySeeds([&](Random& random) {
        const Conversion conversion = MakeConversion(random, plainChoice);
        Compare(random, conversion, "p", runtimesLetters,
                reinterpret_cast<void*>(static_cast<uintptr_t>(random.Integer())));
    });
}

TEST(BoundedFormatAtRandom, WritesCharactersAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const Conversion conversion = MakeConversion(random, plainChoice);
        const char* letters = random.OneIn(2) ? "c" : "hc";
        Compare(random, conversion, letters, "c", 1 + static_cast<int>(random.Below(127)));
    });
}

TEST(BoundedFormatAtRandom, WritesNarrowTextAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const std::string text = MakeText(random);
        const Conversion conversion = MakeConversion(random, textChoice);
        Compare(random, conversion, random.OneIn(2) ? "s" : "hs", "s", text.c_str());
    });
}

TEST(BoundedFormatAtRandom, WritesWideTextAsTheRuntimeWritesNarrow)
{
    ForManySeeds([](Random& random) {
        const std::string text = MakeText(random);
        const std::vector<wchar_t> wide = Widen(text);
        const Conversion conversion = MakeConversion(random, textChoice);
        char expected[bufferSize];
        char formatted[bufferSize];
        const int length = Call(&FormatByRuntime, expected, bufferSize, (conversion.text + "s").c_str(),
                                conversion.stars, text.c_str());
        EXPECT_EQ(Call(&FormatBounded, formatted, bufferSize, (conversion.text + "ls").c_str(),
                       conversion.stars, wide.data()),
                  length);
        EXPECT_STREQ(formatted, expected) << conversion.text;
        if (isPlatformsRuntime)
        {
            Call(&FormatByRuntime, expected, bufferSize, (conversion.text + "ls").c_str(), conversion.stars,
                 wide.data());
            EXPECT_STREQ(formatted, expected) << conversion.text;
        }
    });
}
} // namespace Torvane
