#include "Shared/Foundation/BoundedFormat.h"

#include <gtest/gtest.h>
#include <math.h>
#include <random>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <type_traits>
#include <vector>

// One seed is one comparison with the runtime's printf. A failure prints its seed; TORVANE_TEST_SEED=<seed> in the
// environment makes the seeds begin there instead of at a place that differs from run to run.

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t comparisons = 20000; ///< per test
constexpr size_t bufferSize = 256;      ///< holds the longest output

// Left out on the target, where Wine's runtime differs from the platform's: negative limits of strings, and doubles
// halfway between two outputs, of which that runtime takes the greater and not the even one.
#ifdef _WIN32
constexpr bool isPlatformsRuntime = true;
#else
constexpr bool isPlatformsRuntime = false;
#endif

uint64_t FirstSeed()
{
    if (const char* chosen = getenv("TORVANE_TEST_SEED"))
    {
        return strtoull(chosen, nullptr, 0);
    }
    std::random_device device;
    return uint64_t{device()} << 32 | device();
}

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

    /// Any time that `RoundToHundredths` knows.
    double Time()
    {
        switch (Below(5))
        {
        case 0: // an ordinary time
            return static_cast<double>(Bits() >> 11) / 9007199254740992.0 * 100000.0;
        case 1: // often halfway between two hundredths
            return static_cast<double>(Bits() >> 40) / (1u << Below(12));
        case 2: // on either side of halfway between two hundredths
            return nextafter(static_cast<double>(Bits() >> (20 + Below(40))) / 200.0,
                             OneIn(2) ? 0.0 : 0x1p57);
        case 3: // about to run over to the next power of ten
            return 9.9999999999 * static_cast<double>(Below(1000000)) / 1000.0;
        default: // of any size
            return ldexp(static_cast<double>(Bits() >> 11), 4 - static_cast<int>(Below(80)));
        }
    }

private:
    uint64_t state;
};

/// Whether a time is exactly between two hundredths: it is an odd multiple of one eighth then.
bool IsHalfway(double value)
{
    return fmod(value * 8, 2.0) == 1.0;
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

int FormatWide(wchar_t* buffer, size_t size, const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = Unchecked::FormatBoundedWideV(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

std::vector<wchar_t> Widen(const std::string& text)
{
    std::vector<wchar_t> wide(text.begin(), text.end());
    wide.push_back(0);
    return wide;
}

/// A percent sign and a random width.
std::string StartConversion(Random& random, bool mayHaveZeros = false)
{
    std::string start = "%";
    if (random.OneIn(2))
    {
        start += (mayHaveZeros && random.OneIn(2) ? "0" : "") + std::to_string(1 + random.Below(40));
    }
    return start;
}

/// Compares the whole output, output cut at a random place, and UTF-16. What is written is ASCII.
template<typename... Arguments>
void Compare(Random& random, const std::string& start, const std::string& letters,
             const std::string& runtimesLetters, Arguments... arguments)
{
    const std::string before = random.OneIn(2) ? "" : "ab ";
    const std::string format = before + start + letters + "|";
    SCOPED_TRACE(format);

    char expected[bufferSize];
    const int expectedLength =
        FormatByRuntime(expected, bufferSize, (before + start + runtimesLetters + "|").c_str(), arguments...);
    ASSERT_GE(expectedLength, 0);
    ASSERT_LT(expectedLength, static_cast<int>(bufferSize));
    const size_t length = static_cast<size_t>(expectedLength);

    char whole[bufferSize];
    EXPECT_EQ(Unchecked::FormatBounded(whole, bufferSize, format.c_str(), arguments...), expectedLength);
    ASSERT_STREQ(whole, expected);

    const size_t size = 1 + random.Below(static_cast<uint32_t>(length) + 3);
    std::vector<char> bounded(size); // exactly as large as stated, for the sanitizer to watch
    const int boundedLength = Unchecked::FormatBounded(bounded.data(), size, format.c_str(), arguments...);
    const size_t kept = size > length ? length : size - 1;
    EXPECT_EQ(boundedLength, size > length ? expectedLength : -1) << "in " << size << " bytes";
    ASSERT_EQ(std::string(bounded.data()), std::string(expected, kept)) << "in " << size << " bytes";

    if constexpr (!(std::is_same_v<Arguments, const char*> || ...))
    {
        std::vector<wchar_t> wide(size);
        EXPECT_EQ(FormatWide(wide.data(), size, Widen(format).data(), arguments...), boundedLength);
        for (size_t i = 0; i < kept; ++i)
        {
            ASSERT_EQ(wide[i], static_cast<wchar_t>(expected[i])) << "unit " << i;
        }
        EXPECT_EQ(wide[kept], 0);
    }
}

template<typename Argument>
void CompareNumber(Random& random, const std::string& start, const std::string& letters, Argument value)
{
    Compare(random, start, letters, letters, value);
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
    ForManySeeds([](Random& random) {
        CompareNumber(random, StartConversion(random), "d", static_cast<int32_t>(random.Integer()));
    });
}

TEST(BoundedFormatAtRandom, WritesUnsignedNumbersAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const std::string start = StartConversion(random);
        if (random.OneIn(2))
        {
            return CompareNumber(random, start, "u", static_cast<uint32_t>(random.Integer()));
        }
        CompareNumber(random, start, "zu", static_cast<size_t>(random.Integer()));
    });
}

TEST(BoundedFormatAtRandom, WritesHexadecimalNumbersAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const std::string start = StartConversion(random, true);
        if (random.OneIn(2))
        {
            return CompareNumber(random, start, "X", static_cast<uint32_t>(random.Integer()));
        }
        CompareNumber(random, start, "llX", static_cast<unsigned long long>(random.Integer()));
    });
}

TEST(BoundedFormatAtRandom, WritesTimesAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        double value = random.Time();
        while (isPlatformsRuntime && IsHalfway(value))
        {
            value = random.Time();
        }
        CompareNumber(random, StartConversion(random), ".2f", value);
    });
}

TEST(BoundedFormatAtRandom, WritesPointersAsTheRuntimeDoes)
{
    // Another platform's runtime spells pointers otherwise, so there they are compared as numbers.
    const char* runtimesLetters = isPlatformsRuntime ? "p" : ".16lX";
    ForManySeeds([&](Random& random) {
        Compare(random, StartConversion(random), "p", runtimesLetters,
                reinterpret_cast<void*>(static_cast<uintptr_t>(random.Integer())));
    });
}

TEST(BoundedFormatAtRandom, WritesNarrowStringsAsTheRuntimeDoes)
{
    ForManySeeds([](Random& random) {
        const std::string text = MakeText(random);
        const std::string start = StartConversion(random);
        if (random.OneIn(2))
        {
            return Compare(random, start, random.OneIn(2) ? "s" : "hs", "s", text.c_str());
        }
        const int lowest = isPlatformsRuntime ? 0 : -3;
        Compare(random, start, ".*s", ".*s", lowest + static_cast<int>(random.Below(70)), text.c_str());
    });
}

TEST(BoundedFormatAtRandom, WritesUtf16AsTheRuntimeWritesNarrowStrings)
{
    ForManySeeds([](Random& random) {
        const std::string text = MakeText(random);
        const std::vector<wchar_t> wide = Widen(text);
        const std::string start = StartConversion(random);
        char expected[bufferSize];
        char formatted[bufferSize];
        const int length = FormatByRuntime(expected, bufferSize, (start + "s").c_str(), text.c_str());
        EXPECT_EQ(Unchecked::FormatBounded(formatted, bufferSize, (start + "ls").c_str(), wide.data()),
                  length);
        EXPECT_STREQ(formatted, expected) << start;
        if (isPlatformsRuntime)
        {
            FormatByRuntime(expected, bufferSize, (start + "ls").c_str(), wide.data());
            EXPECT_STREQ(formatted, expected) << start;
        }
    });
}
} // namespace Torvane::Testing
