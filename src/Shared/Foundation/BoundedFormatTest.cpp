#include "Shared/Foundation/BoundedFormat.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <limits>
#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

namespace Torvane
{
namespace
{
constexpr char untouched = '\x7E';

template<typename... Arguments>
std::string Formatted(const char* format, Arguments... arguments)
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

template<typename... Arguments>
std::u16string FormattedWide(const wchar_t* format, Arguments... arguments)
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
Cut FormatIntoBytes(size_t size, const char* format, Arguments... arguments)
{
    std::vector<char> buffer(size + 1, untouched);
    const int result = FormatBounded(buffer.data(), size, format, arguments...);
    EXPECT_EQ(buffer[size], untouched) << "written behind the buffer";
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
    EXPECT_EQ(Formatted("100%%"), "100%");
    EXPECT_EQ(Formatted("%%%%hs"), "%%hs");
}

TEST(BoundedFormat, WritesSignedNumbers)
{
    EXPECT_EQ(Formatted("%d", 0), "0");
    EXPECT_EQ(Formatted("%d", -1), "-1");
    EXPECT_EQ(Formatted("%i", INT_MAX), "2147483647");
    EXPECT_EQ(Formatted("%d", INT_MIN), "-2147483648");
    EXPECT_EQ(Formatted("%lld", static_cast<long long>(INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(Formatted("%I64d", static_cast<long long>(INT64_MAX)), "9223372036854775807");
    EXPECT_EQ(Formatted("%jd", static_cast<intmax_t>(-5)), "-5");
    EXPECT_EQ(Formatted("%td", static_cast<ptrdiff_t>(-7)), "-7");
    EXPECT_EQ(Formatted("%zd", static_cast<ptrdiff_t>(-8)), "-8");
    EXPECT_EQ(Formatted("%ld", LONG_MIN), std::to_string(LONG_MIN));
}

TEST(BoundedFormat, NarrowsNumbersToTheSizeThatTheLettersName)
{
    EXPECT_EQ(Formatted("%hd", 0x12348000), "-32768");
    EXPECT_EQ(Formatted("%hu", 0x1234FFFF), "65535");
    EXPECT_EQ(Formatted("%hhd", 0x123480), "-128");
    EXPECT_EQ(Formatted("%hhX", 0x1234AB), "AB");
}

TEST(BoundedFormat, WritesUnsignedNumbersInThreeBases)
{
    EXPECT_EQ(Formatted("%u", UINT_MAX), "4294967295");
    EXPECT_EQ(Formatted("%zu", static_cast<size_t>(-1)), std::to_string(static_cast<size_t>(-1)));
    EXPECT_EQ(Formatted("%llu", static_cast<unsigned long long>(UINT64_MAX)), "18446744073709551615");
    EXPECT_EQ(Formatted("0x%X", 0xC0000005u), "0xC0000005");
    EXPECT_EQ(Formatted("0x%X", 0u), "0x0");
    EXPECT_EQ(Formatted("%x", 0xABCDEFu), "abcdef");
    EXPECT_EQ(Formatted("0x%016llX", 0x7FFE12345678ull), "0x00007FFE12345678");
    EXPECT_EQ(Formatted("%016llX", 0xFEDCBA9876543210ull), "FEDCBA9876543210");
    EXPECT_EQ(Formatted("%I64X", 0xFEDCBA9876543210ull), "FEDCBA9876543210");
    EXPECT_EQ(Formatted("%o", 511u), "777");
    EXPECT_EQ(Formatted("%llo", static_cast<unsigned long long>(UINT64_MAX)), "1777777777777777777777");
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

TEST(BoundedFormat, AppliesFlagsWidthAndPrecisionToNumbers)
{
    EXPECT_EQ(Formatted("[%5d][%-5d][%05d]", -42, -42, -42), "[  -42][-42  ][-0042]");
    EXPECT_EQ(Formatted("[%+d][%+d][% d][% d]", 1, -1, 1, -1), "[+1][-1][ 1][-1]");
    EXPECT_EQ(Formatted("[%+ d]", 1), "[+1]");
    EXPECT_EQ(Formatted("[%.3d][%8.3d][%-8.3d]", 7, -7, -7), "[007][    -007][-007    ]");
    EXPECT_EQ(Formatted("[%08.3d]", 7), "[     007]");
    EXPECT_EQ(Formatted("[%-05d]", 7), "[7    ]");
    EXPECT_EQ(Formatted("[%.0d][%.d][%5.0u]", 0, 0, 0u), "[][][     ]");
    EXPECT_EQ(Formatted("[%#x][%#X][%#x][%#o][%#o]", 255u, 255u, 0u, 8u, 0u), "[0xff][0XFF][0][010][0]");
    EXPECT_EQ(Formatted("[%#06x][%#6x][%-#6x]", 1u, 1u, 1u), "[0x0001][   0x1][0x1   ]");
    EXPECT_EQ(Formatted("[%#.0o][%#.3o]", 0u, 8u), "[0][010]");
    EXPECT_EQ(Formatted("[%#llo]", static_cast<unsigned long long>(UINT64_MAX)), "[01777777777777777777777]");
    EXPECT_EQ(Formatted("[%.30d]", -1), "[-" + std::string(29, '0') + "1]");
}

TEST(BoundedFormat, TakesWidthAndPrecisionFromArguments)
{
    EXPECT_EQ(Formatted("[%*d][%-*d][%*d]", 4, 1, 4, 2, -4, 3), "[   1][2   ][3   ]");
    EXPECT_EQ(Formatted("[%.*d][%*.*d]", 3, 1, 5, 2, 4), "[001][   04]");
    EXPECT_EQ(Formatted("[%.*d]", -1, 0), "[0]");
    EXPECT_EQ(Formatted("[%.*s]", -1, "all of it"), "[all of it]");
    EXPECT_EQ(Formatted("[%.*f]", 3, 2.0), "[2.000]");
}

TEST(BoundedFormat, WritesTheTimeOfARecordInNineColumns)
{
    EXPECT_EQ(Formatted("%9.2f", 0.0), "     0.00");
    EXPECT_EQ(Formatted("%9.2f", 1.234), "     1.23");
    EXPECT_EQ(Formatted("%9.2f", 59.999), "    60.00");
    EXPECT_EQ(Formatted("%9.2f", 123456.784), "123456.78");
    EXPECT_EQ(Formatted("%9.2f", 1234567.891), "1234567.89");
    EXPECT_EQ(Formatted("%9.2f", -0.004), "    -0.00");
}

TEST(BoundedFormat, WritesDoubles)
{
    EXPECT_EQ(Formatted("%f", 1.5), "1.500000");
    EXPECT_EQ(Formatted("%.0f|%.0f|%#.0f", 2.0, 0.75, 3.0), "2|1|3.");
    EXPECT_EQ(Formatted("%+.1f|% .1f|%08.2f|%-8.2f|", 1.0, 1.0, -1.5, -1.5), "+1.0| 1.0|-0001.50|-1.50   |");
    EXPECT_EQ(Formatted("%f", 1e22), "10000000000000000000000.000000");
    EXPECT_EQ(Formatted("%.20f", 0.1), "0.10000000000000000555");
    EXPECT_EQ(Formatted("%.1f", -0.0), "-0.0");
    EXPECT_EQ(Formatted("%.80f", 0.5), "0.5" + std::string(79, '0'));
    EXPECT_EQ(Formatted("[%72.70f][%-74.70f][%075.70f]", 1.0, 1.0, -1.0),
              "[1." + std::string(70, '0') + "][1." + std::string(70, '0') + "  ][-001." +
                  std::string(70, '0') + "]");
}

TEST(BoundedFormat, WritesDoublesThatAreNoNumbers)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(Formatted("%f|%9.2f|%-5f|%+f|%05f", infinity, -infinity, infinity, infinity, infinity),
              "inf|     -inf|inf  |+inf|  inf");
    EXPECT_EQ(Formatted("%9.2f", std::numeric_limits<double>::quiet_NaN()), "      nan");
}

TEST(BoundedFormat, WritesNarrowText)
{
    EXPECT_EQ(Formatted("Error: %u, 0x%X: %hs", 2u, 2u, "File not found.\r\n"),
              "Error: 2, 0x2: File not found.\r\n");
    EXPECT_EQ(Formatted("%s and %hs", "one", "other"), "one and other");
    EXPECT_EQ(Formatted("[%hs]", ""), "[]");
    EXPECT_EQ(Formatted("[%5hs][%-5hs][%2hs]", "abc", "abc", "abc"), "[  abc][abc  ][abc]");
    EXPECT_EQ(Formatted("%43s", "Sender.cpp(12)"), std::string(29, ' ') + "Sender.cpp(12)");
    EXPECT_EQ(Formatted("[%hs]", "\xC3\xA4\xFF"), "[\xC3\xA4\xFF]") << "the bytes go in as they are";
    EXPECT_EQ(Formatted("%hs|%ls", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr)),
              "(null)|(null)");
}

TEST(BoundedFormat, ReadsNoMoreTextThanThePrecisionAllows)
{
    const std::vector<char> unterminated = {'a', 'b', 'c'};
    EXPECT_EQ(Formatted("[%.*s]", 3, unterminated.data()), "[abc]");
    EXPECT_EQ(Formatted("[%.2hs][%.0hs]", unterminated.data(), unterminated.data()), "[ab][]");
    EXPECT_EQ(Formatted("[%5.2s]", unterminated.data()), "[   ab]");
    const std::vector<wchar_t> wide = {L'a', L'b', L'c'};
    EXPECT_EQ(Formatted("[%.3ls]", wide.data()), "[abc]");
    EXPECT_EQ(Formatted("[%.5s]", "ab"), "[ab]");
}

TEST(BoundedFormat, WritesWideTextAsUtf8)
{
    EXPECT_EQ(Formatted("Creating file at %ls", L"C:\\Logs\\log.txt"), "Creating file at C:\\Logs\\log.txt");
    EXPECT_EQ(Formatted("%ls", L"\x00E4\x07FF"), "\xC3\xA4\xDF\xBF");
    EXPECT_EQ(Formatted("%ls", L"\x0800\x20AC\xFFFF"), "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF");
    EXPECT_EQ(Formatted("%ls", L"\xD83D\xDE00\xDBFF\xDFFF"), "\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(Formatted("[%4ls][%-4ls]", L"\x00E4", L"\x00E4"), "[   \xC3\xA4][\xC3\xA4   ]");
}

TEST(BoundedFormat, ReplacesSurrogatesThatStandAlone)
{
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(Formatted("%ls", L"\xD83D"), replacement);
    EXPECT_EQ(Formatted("%ls", L"\xDE00!"), replacement + "!");
    EXPECT_EQ(Formatted("%ls", L"\xD83D\x0041"), replacement + "A");
    EXPECT_EQ(Formatted("%ls", L"\xD83D\xD83D\xDE00"), replacement + "\xF0\x9F\x98\x80");
    EXPECT_EQ(Formatted("%.1ls", L"\xD83D\xDE00"), replacement) << "the precision counts units";
}

TEST(BoundedFormat, WritesCharacters)
{
    EXPECT_EQ(Formatted("%c%c", 'A', 'b'), "Ab");
    EXPECT_EQ(Formatted("[%3c][%-3c]", 'x', 'y'), "[  x][y  ]");
    EXPECT_EQ(Formatted("[%c]", 0), std::string("[\0]", 3));
    EXPECT_EQ(Formatted("%lc%hc", 0x20AC, 'h'), "\xE2\x82\xACh");
}

TEST(BoundedFormat, LeavesUnknownConversionsAsTheyStand)
{
    EXPECT_EQ(Formatted("50 %, or so"), "50 %, or so");
    EXPECT_EQ(Formatted("%y %d", 4), "%y 4");
    EXPECT_EQ(Formatted("at the end %"), "at the end %");
    EXPECT_EQ(Formatted("at the end %-5.3l"), "at the end %-5.3l");
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
    for (const char* format : {"%hs6", "%hs%d", "%hs%x", "%hs%c", "%hs%f", "%hs%hs"})
    {
        // Whatever the conversion takes for these words, it writes at least one character.
        const Cut cut = FormatIntoBytes(6, format, "12345", "6", "6", "6");
        EXPECT_LT(cut.result, 0) << format;
        EXPECT_EQ(cut.bytes, Bytes("12345")) << format;
    }
    EXPECT_EQ(FormatIntoBytes(5, "%ls", L"abcdef").bytes, Bytes("abcd"));
    EXPECT_EQ(FormatIntoBytes(5, "%9d", 1).bytes, Bytes("    "));
    EXPECT_EQ(FormatIntoBytes(5, "%-9d", 1).bytes, Bytes("1   "));
    EXPECT_EQ(FormatIntoBytes(5, "%09d", -1).bytes, Bytes("-000"));
    EXPECT_EQ(FormatIntoBytes(5, "%.9d", -1).bytes, Bytes("-000"));
    EXPECT_EQ(FormatIntoBytes(5, "%p", static_cast<void*>(nullptr)).bytes, Bytes("0000"));
}

TEST(BoundedFormat, WritesNothingOfWhatFollowsACut)
{
    const Cut cut = FormatIntoBytes(4, "%hs%c%d", "12345", 'x', 1);
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

TEST(BoundedFormat, GetsThroughHugeWidths)
{
    const Cut cut = FormatIntoBytes(4, "%*d", INT_MAX, 1);
    EXPECT_LT(cut.result, 0);
    EXPECT_EQ(cut.bytes, Bytes("   "));
    EXPECT_EQ(FormatIntoBytes(4, "%*d", INT_MIN, 1).bytes, Bytes("1  "));
    EXPECT_LT(FormatIntoBytes(4, "%.*d", INT_MAX, 1).result, 0);
    EXPECT_LT(FormatIntoBytes(4, "%.*f", INT_MAX, 1.0).result, 0);
}

TEST(BoundedFormatWide, WritesTheNamesThatWeForm)
{
    EXPECT_EQ(FormattedWide(L"log_windows_agent_%u.txt", 4711u), u"log_windows_agent_4711.txt");
    EXPECT_EQ(FormattedWide(L"TVN_HeartBeat_%ls", L"a\x00E4\xD83D\xDE00"),
              u"TVN_HeartBeat_a\u00E4\U0001F600");
    EXPECT_EQ(FormattedWide(L"%s|%5s|%-5s|%.1s", L"abc", L"abc", L"abc", L"abc"), u"abc|  abc|abc  |a");
    EXPECT_EQ(FormattedWide(L"%08X|%9.2f|%%|%c|%-4d|", 0xABCu, 1.5, L'\x20AC', 7),
              u"00000ABC|     1.50|%|\u20AC|7   |");
}

TEST(BoundedFormatWide, LeavesUnitsOfWideTextAsTheyAre)
{
    const wchar_t lone[] = {0xD83D, L'x', 0xDE00, 0};
    EXPECT_EQ(FormattedWide(L"%ls", lone), Units(lone, 3));
}

TEST(BoundedFormatWide, ReadsNarrowTextAsUtf8)
{
    EXPECT_EQ(FormattedWide(L"%hs", "plain"), u"plain");
    EXPECT_EQ(FormattedWide(L"%hs", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), u"\u00E4\u20AC\U0001F600");
    EXPECT_EQ(FormattedWide(L"%hs", "\xC2\x80\xE0\xA0\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"),
              u"\u0080\u0800\U00010000\U0010FFFF");
    EXPECT_EQ(FormattedWide(L"[%4hs]", "ab"), u"[  ab]");
}

TEST(BoundedFormatWide, ReplacesWhatIsNoUtf8)
{
    EXPECT_EQ(FormattedWide(L"%hs", "a\x80z"), u"a\uFFFDz") << "a byte that only follows";
    EXPECT_EQ(FormattedWide(L"%hs", "\xC0\x80"), u"\uFFFD\uFFFD") << "an overlong sequence of two";
    EXPECT_EQ(FormattedWide(L"%hs", "\xE0\x80\x80"), u"\uFFFD\uFFFD\uFFFD") << "of three";
    EXPECT_EQ(FormattedWide(L"%hs", "\xF0\x80\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD") << "of four";
    EXPECT_EQ(FormattedWide(L"%hs", "\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD") << "a surrogate";
    EXPECT_EQ(FormattedWide(L"%hs", "\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD") << "beyond the last";
    EXPECT_EQ(FormattedWide(L"%hs", "\xF5\xFFz"), u"\uFFFD\uFFFDz") << "bytes that occur nowhere";
    EXPECT_EQ(FormattedWide(L"%hs", "\xE2\x82"), u"\uFFFD\uFFFD") << "the end inside a sequence";
    EXPECT_EQ(FormattedWide(L"%hs", "\xC3("), u"\uFFFD(") << "a sequence that breaks off";
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
} // namespace Torvane
