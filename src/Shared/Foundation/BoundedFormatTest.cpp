#include "Shared/Foundation/BoundedFormat.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <limits>
#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
constexpr char untouched = '\x7E';

template<typename... Arguments>
std::string Formatted(FormatOf<Arguments...> format, Arguments... arguments)
{
    std::vector<char> buffer(4096, untouched);
    const int length = FormatBounded(buffer.data(), buffer.size(), format, arguments...);
    if (length < 0)
    {
        return "<cut>";
    }
    EXPECT_EQ(buffer[static_cast<size_t>(length)], 0);
    EXPECT_EQ(buffer[static_cast<size_t>(length) + 1], untouched);
    return std::string(buffer.data(), static_cast<size_t>(length));
}

/// Units of UTF-16, which the host's own wide type needn't be.
std::u16string Units(const wchar_t* text, size_t length)
{
    return std::u16string(text, text + length);
}

int FormatWideUnchecked(wchar_t* buffer, size_t size, const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = Unchecked::FormatBoundedWideV(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

template<typename... Arguments>
int FormatBoundedWide(wchar_t* buffer, size_t size, WideFormatOf<Arguments...> format, Arguments... arguments)
{
    return FormatWideUnchecked(buffer, size, format.Get(), arguments...);
}

template<typename... Arguments>
std::u16string FormattedWide(WideFormatOf<Arguments...> format, Arguments... arguments)
{
    std::vector<wchar_t> buffer(4096, L'\x7E7E');
    const int length = FormatBoundedWide(buffer.data(), buffer.size(), format, arguments...);
    if (length < 0)
    {
        return u"<cut>";
    }
    EXPECT_EQ(buffer[static_cast<size_t>(length)], 0);
    EXPECT_EQ(buffer[static_cast<size_t>(length) + 1], L'\x7E7E');
    return Units(buffer.data(), static_cast<size_t>(length));
}

/// What is left in a buffer of exactly `size` bytes, and the result.
struct Cut
{
    int result;
    std::vector<char> bytes;
};

template<typename... Arguments>
Cut FormatIntoBytes(size_t size, FormatOf<Arguments...> format, Arguments... arguments)
{
    std::vector<char> buffer(size + 1, untouched);
    const int result = FormatBounded(buffer.data(), size, format, arguments...);
    EXPECT_EQ(buffer[size], untouched) << "written past the buffer";
    buffer.pop_back();
    return {result, buffer};
}

std::vector<char> Bytes(const std::string& text)
{
    return std::vector<char>(text.c_str(), text.c_str() + text.size() + 1);
}

TEST(BoundedFormat, CopiesTextWithoutConversions)
{
    EXPECT_EQ(Formatted("Initializing sender"), "Initializing sender");
    EXPECT_EQ(Formatted(""), "");
    EXPECT_EQ(Formatted("\r\n\t\x01\xFF"), "\r\n\t\x01\xFF");
}

TEST(BoundedFormat, WritesSignedNumbers)
{
    EXPECT_EQ(Formatted("%d", 0), "0");
    EXPECT_EQ(Formatted("%d", -1), "-1");
    EXPECT_EQ(Formatted("%d", INT_MAX), "2147483647");
    EXPECT_EQ(Formatted("%d", INT_MIN), "-2147483648");
}

TEST(BoundedFormat, WritesUnsignedNumbersInTwoBases)
{
    EXPECT_EQ(Formatted("%u", 0u), "0");
    EXPECT_EQ(Formatted("%u", UINT_MAX), "4294967295");
    EXPECT_EQ(Formatted("%zu", static_cast<size_t>(-1)), std::to_string(static_cast<size_t>(-1)));
    EXPECT_EQ(Formatted("0x%X", 0xC0000005u), "0xC0000005");
    EXPECT_EQ(Formatted("0x%X", static_cast<int>(0xC0000005u)), "0xC0000005");
    EXPECT_EQ(Formatted("0x%X", 0u), "0x0");
    EXPECT_EQ(Formatted("0x%016llX", 0x7FFE12345678ull), "0x00007FFE12345678");
    EXPECT_EQ(Formatted("%016llX", 0xFEDCBA9876543210ull), "FEDCBA9876543210");
    EXPECT_EQ(Formatted("%llX", 0xFEDCBA9876543210ull), "FEDCBA9876543210");
}

TEST(BoundedFormat, WritesPointersInUpperCaseAsWideAsTheyAre)
{
    const std::string zeros(sizeof(void*) * 2 - 8, '0');
    EXPECT_EQ(Formatted("0x%p", reinterpret_cast<void*>(uintptr_t{0x1234ABCD})), "0x" + zeros + "1234ABCD");
    EXPECT_EQ(Formatted("%p", static_cast<void*>(nullptr)), zeros + "00000000");
    EXPECT_EQ(Formatted("%p", reinterpret_cast<void*>(~uintptr_t{0})), std::string(sizeof(void*) * 2, 'F'));
    EXPECT_EQ(Formatted("[%20p]", reinterpret_cast<void*>(uintptr_t{0xAB})),
              "[" + std::string(20 - sizeof(void*) * 2, ' ') + zeros + "000000AB]");
}

TEST(BoundedFormat, PadsNumbersToTheirWidth)
{
    EXPECT_EQ(Formatted("[%5d][%2d]", -42, -42), "[  -42][-42]");
    EXPECT_EQ(Formatted("[%5u][%5X][%5zu]", 42u, 0xABu, size_t{7}), "[   42][   AB][    7]");
    EXPECT_EQ(Formatted("[%08X][%02X][%01X]", 0xABCu, 0u, 0xABCu), "[00000ABC][00][ABC]");
    EXPECT_EQ(Formatted("[%030llX]", 1ull), "[" + std::string(29, '0') + "1]");
}

TEST(BoundedFormat, WritesTheTimeOfARecordInNineColumns)
{
    EXPECT_EQ(Formatted("%9.2f", 0.0), "     0.00");
    EXPECT_EQ(Formatted("%9.2f", 1.234), "     1.23");
    EXPECT_EQ(Formatted("%9.2f", 59.999), "    60.00");
    EXPECT_EQ(Formatted("%9.2f", 123456.784), "123456.78");
    EXPECT_EQ(Formatted("%9.2f", 1234567.891), "1234567.89");
    EXPECT_EQ(Formatted("%9.2f", -0.0), "     0.00");
    EXPECT_EQ(Formatted("%.2f", 1e17), "100000000000000000.00");
}

TEST(BoundedFormat, RoundsToTheNearestHundredthAndToTheEvenOneOfTwo)
{
    EXPECT_EQ(RoundToHundredths(0.125), 12u);
    EXPECT_EQ(RoundToHundredths(0.375), 38u);
    EXPECT_EQ(RoundToHundredths(nextafter(0.125, 1.0)), 13u);
    EXPECT_EQ(RoundToHundredths(nextafter(0.375, 0.0)), 37u);
    EXPECT_EQ(RoundToHundredths(12.345), 1235u) << "the double is greater than the number";
    EXPECT_EQ(RoundToHundredths(1.005), 100u) << "the double is less than the number";
    EXPECT_EQ(RoundToHundredths(0.005), 1u);
    EXPECT_EQ(RoundToHundredths(nextafter(0.005, 0.0)), 0u);
    EXPECT_EQ(RoundToHundredths(std::numeric_limits<double>::min()), 0u);
    EXPECT_EQ(RoundToHundredths(std::numeric_limits<double>::denorm_min()), 0u);
}

TEST(BoundedFormat, KnowsTimesUpTo57Bits)
{
    const double limit = 0x1p57;
    EXPECT_EQ(RoundToHundredths(nextafter(limit, 0.0)), ((uint64_t{1} << 57) - 16) * 100);
    EXPECT_EQ(RoundToHundredths(limit), 0u);
    EXPECT_EQ(RoundToHundredths(std::numeric_limits<double>::infinity()), 0u);
    EXPECT_EQ(RoundToHundredths(std::numeric_limits<double>::quiet_NaN()), 0u);
    EXPECT_EQ(RoundToHundredths(-1.0), 0u);
}

TEST(BoundedFormat, WritesNarrowStrings)
{
    EXPECT_EQ(Formatted("Error: %u, 0x%X: %hs", 2u, 2u, "File not found.\r\n"),
              "Error: 2, 0x2: File not found.\r\n");
    EXPECT_EQ(Formatted("%s and %hs", "one", "other"), "one and other");
    EXPECT_EQ(Formatted("[%hs]", ""), "[]");
    EXPECT_EQ(Formatted("[%5hs][%2hs]", "abc", "abc"), "[  abc][abc]");
    EXPECT_EQ(Formatted("%43s", "Sender.cpp(12)"), std::string(29, ' ') + "Sender.cpp(12)");
    EXPECT_EQ(Formatted("[%hs]", "\xC3\xA4\xFF"), "[\xC3\xA4\xFF]") << "the bytes go in as they are";
    EXPECT_EQ(Formatted("%hs|%ls", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr)),
              "(null)|(null)");
}

TEST(BoundedFormat, ReadsNoMoreOfAStringThanItsLimitAllows)
{
    const std::vector<char> unterminated = {'a', 'b', 'c'};
    EXPECT_EQ(Formatted("[%.*s]", 3, unterminated.data()), "[abc]");
    EXPECT_EQ(Formatted("[%.*s][%.*s]", 2, unterminated.data(), 0, unterminated.data()), "[ab][]");
    EXPECT_EQ(Formatted("[%5.*s]", 2, unterminated.data()), "[   ab]");
    EXPECT_EQ(Formatted("[%.*s]", 5, "ab"), "[ab]");
    EXPECT_EQ(Formatted("[%.*s]", -1, "all of it"), "[all of it]");
}

TEST(BoundedFormat, WritesUtf16AsUtf8)
{
    EXPECT_EQ(Formatted("Creating file at %ls", L"C:\\Logs\\log.txt"), "Creating file at C:\\Logs\\log.txt");
    EXPECT_EQ(Formatted("%ls", L"\x00E4\x07FF"), "\xC3\xA4\xDF\xBF");
    EXPECT_EQ(Formatted("%ls", L"\x0800\x20AC\xFFFF"), "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF");
    EXPECT_EQ(Formatted("%ls", L"\xD83D\xDE00\xDBFF\xDFFF"), "\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(Formatted("[%4ls]", L"\x00E4"), "[   \xC3\xA4]");
}

TEST(BoundedFormat, WritesTheFirstAndLastCodePointsOfEachLength)
{
    EXPECT_EQ(Formatted("%ls", L"\x0001\x007F\x0080"), "\x01\x7F\xC2\x80");
    EXPECT_EQ(Formatted("%ls", L"\x07FF\x0800"), "\xDF\xBF\xE0\xA0\x80");
    EXPECT_EQ(Formatted("%ls", L"\xD7FF\xE000\xFFFF"), "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF");
    EXPECT_EQ(Formatted("%ls", L"\xD800\xDC00\xD800\xDFFF"), "\xF0\x90\x80\x80\xF0\x90\x8F\xBF");
    EXPECT_EQ(Formatted("%ls", L"\xDBFF\xDC00"), "\xF4\x8F\xB0\x80");
}

TEST(BoundedFormat, ReplacesTheFirstAndLastSurrogatesWithoutTheirOtherHalf)
{
    const std::string replacement = "\xEF\xBF\xBD";
    for (const wchar_t surrogate : {0xD800, 0xDBFF, 0xDC00, 0xDFFF})
    {
        const wchar_t alone[] = {surrogate, 0};
        EXPECT_EQ(Formatted("%ls", alone), replacement) << std::hex << surrogate;
        const wchar_t beforeOther[] = {surrogate, 0xE000, 0};
        EXPECT_EQ(Formatted("%ls", beforeOther), replacement + "\xEE\x80\x80") << std::hex << surrogate;
    }
    EXPECT_EQ(Formatted("%ls", L"\xD800\xDBFF"), replacement + replacement);
    EXPECT_EQ(Formatted("%ls", L"\xDC00\xDC00"), replacement + replacement);
}

TEST(BoundedFormat, ReplacesSurrogatesWithoutTheirOtherHalf)
{
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(Formatted("%ls", L"\xD83D"), replacement);
    EXPECT_EQ(Formatted("%ls", L"\xDE00!"), replacement + "!");
    EXPECT_EQ(Formatted("%ls", L"\xD83D\x0041"), replacement + "A");
    EXPECT_EQ(Formatted("%ls", L"\xD83D\xD83D\xDE00"), replacement + "\xF0\x9F\x98\x80");
}

TEST(BoundedFormat, FitsATextThatLeavesRoomForTheTerminatorAlone)
{
    const Cut exact = FormatIntoBytes(6, "%hs", "12345");
    EXPECT_EQ(exact.result, 5);
    EXPECT_EQ(exact.bytes, Bytes("12345"));
    const Cut empty = FormatIntoBytes(1, "");
    EXPECT_EQ(empty.result, 0);
    EXPECT_EQ(empty.bytes, Bytes(""));
}

TEST(BoundedFormat, CutsAndTerminatesWhatDoesNotFit)
{
    const auto expectCut = [](const Cut& cut) {
        EXPECT_LT(cut.result, 0);
        EXPECT_EQ(cut.bytes, Bytes("12345"));
    };
    expectCut(FormatIntoBytes(6, "%hs6", "12345"));
    expectCut(FormatIntoBytes(6, "%hs%d", "12345", 6));
    expectCut(FormatIntoBytes(6, "%hs%X", "12345", 6));
    expectCut(FormatIntoBytes(6, "%hs%.2f", "12345", 6.0));
    expectCut(FormatIntoBytes(6, "%hs%hs", "12345", "6"));
    expectCut(FormatIntoBytes(6, "%hs%ls", "12345", L"6"));
    EXPECT_EQ(FormatIntoBytes(5, "%ls", L"abcdef").bytes, Bytes("abcd"));
    EXPECT_EQ(FormatIntoBytes(5, "%9d", 1).bytes, Bytes("    "));
    EXPECT_EQ(FormatIntoBytes(5, "%09X", 1).bytes, Bytes("0000"));
    EXPECT_EQ(FormatIntoBytes(5, "%p", static_cast<void*>(nullptr)).bytes, Bytes("0000"));
}

TEST(BoundedFormat, WritesNothingOfWhatFollowsACut)
{
    const Cut cut = FormatIntoBytes(4, "%hs%hs%d", "12345", "x", 1);
    EXPECT_LT(cut.result, 0);
    EXPECT_EQ(cut.bytes, Bytes("123"));
}

TEST(BoundedFormat, MayCutInsideAUtf8Sequence)
{
    EXPECT_EQ(FormatIntoBytes(3, "%ls", L"\x20AC").bytes, Bytes("\xE2\x82"));
    EXPECT_EQ(FormatIntoBytes(4, "%ls", L"\x20AC").bytes, Bytes("\xE2\x82\xAC"));
}

TEST(BoundedFormat, HandlesBuffersWithoutRoom)
{
    char byte = untouched;
    EXPECT_LT(FormatBounded(&byte, 0, "x"), 0);
    EXPECT_EQ(byte, untouched);
    EXPECT_LT(FormatBounded(&byte, 1, "x"), 0);
    EXPECT_EQ(byte, 0);
}

TEST(BoundedFormat, HandlesHugeWidths)
{
    const Cut cut = FormatIntoBytes(4, "%2147483647d", 1);
    EXPECT_LT(cut.result, 0);
    EXPECT_EQ(cut.bytes, Bytes("   "));
    EXPECT_LT(FormatIntoBytes(4, "%04294967295X", 1).result, 0);
}

TEST(BoundedFormatWide, WritesTheNamesThatTheAgentForms)
{
    EXPECT_EQ(FormattedWide(L"log_windows_agent_%u.txt", 4711u), u"log_windows_agent_4711.txt");
    EXPECT_EQ(FormattedWide(L"TVN_HeartBeat_%ls", L"a\x00E4\xD83D\xDE00"),
              u"TVN_HeartBeat_a\u00E4\U0001F600");
    EXPECT_EQ(FormattedWide(L"%s|%5s|%.*s", L"abc", L"abc", 1, L"abc"), u"abc|  abc|a");
    EXPECT_EQ(FormattedWide(L"%08X|%9.2f|%4d|", 0xABCu, 1.5, 7), u"00000ABC|     1.50|   7|");
}

TEST(BoundedFormatWide, LeavesUnitsOfUtf16AsTheyAre)
{
    const wchar_t lone[] = {0xD83D, L'x', 0xDE00, 0};
    EXPECT_EQ(FormattedWide(L"%ls", lone), Units(lone, 3));
}

TEST(BoundedFormatWide, CutsAndTerminatesWhatDoesNotFit)
{
    wchar_t buffer[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_LT(FormatBoundedWide(buffer, 5, L"%ls", L"abcdef"), 0);
    EXPECT_EQ(Units(buffer, 6), Units(L"abcd\0\x01", 6));
    EXPECT_EQ(FormatBoundedWide(buffer, 5, L"%u", 4321u), 4);
    EXPECT_EQ(Units(buffer, 5), Units(L"4321\0", 5));
}
} // namespace
} // namespace Torvane::Testing
