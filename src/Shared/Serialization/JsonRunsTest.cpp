#include "Shared/Serialization/JsonRuns.h"
#include "tests/Support/JsonTestTree.h"

#include <gtest/gtest.h>

/// \file
/// Strings, numbers and whitespace of all lengths around one, two and three groups, with whatever ends or breaks
/// them at every place. Texts and trees are in blocks of their exact size.

namespace Torvane::Testing
{
namespace
{
using namespace std::string_view_literals;

constexpr size_t longest = 3 * jsonGroupSize + 2;

/// A text in which no two characters near each other are the same.
std::string Letters(size_t length)
{
    std::string text;
    for (size_t i = 0; i < length; ++i)
    {
        text += static_cast<char>('A' + i % 23);
    }
    return text;
}

std::string Digits(size_t length)
{
    std::string text;
    for (size_t i = 0; i < length; ++i)
    {
        text += static_cast<char>('1' + i % 9);
    }
    return text;
}

std::string Quoted(const std::string& text)
{
    return '"' + text + '"';
}

void ExpectString(const std::string& source, const std::string& expected, uint32_t flags = 0)
{
    // At the end of the text, and where the text has more left than the tree.
    for (const size_t space : {size_t{0}, size_t{2 * jsonGroupSize}})
    {
        const JsonTree tree = ParseInSteps(source + std::string(space, ' '), flags);
        ASSERT_TRUE(tree.accepted) << source << ": error " << tree.sized.error << " at " << tree.sized.offset;
        ASSERT_TRUE(tree.IsFilled()) << source;
        ASSERT_EQ(tree.Root().type, JsonType::String);
        const JsonString& string = PayloadOf<JsonString>(tree.Root());
        ASSERT_EQ(TextOf(string), expected) << source;
        ASSERT_EQ(string.text[string.length], '\0') << source;
    }
}

void ExpectFailure(const std::string& source, uint32_t error, size_t offset)
{
    const JsonTree tree = ParseInSteps(source);
    ASSERT_FALSE(tree.sizePassed) << source;
    ASSERT_EQ(tree.sized.error, error) << source;
    ASSERT_EQ(tree.sized.offset, offset) << source;
}

/// Every variant of a text with something else at one place.
template<typename Visit>
void ForEachPlace(Visit visit)
{
    for (size_t length = 0; length <= longest && !testing::Test::HasFatalFailure(); ++length)
    {
        for (size_t place = 0; place <= length; ++place)
        {
            visit(Letters(place), Letters(length - place));
        }
    }
}

TEST(JsonRuns, StopAtTheseBytesAndAtNoOthers)
{
    const auto isOneOf = [](std::string_view bytes, uint8_t byte) {
        return bytes.find(static_cast<char>(byte)) != std::string_view::npos;
    };
    const auto stringStops = [](__m128i group) {
        return StringStops(group, _mm_set1_epi8('"'));
    };
    for (uint32_t i = 0; i < 256; ++i)
    {
        const uint8_t byte = static_cast<uint8_t>(i);
        EXPECT_EQ(IsStop(stringStops, byte), byte <= '\r' || isOneOf("\"\\", byte)) << i;
        EXPECT_EQ(IsStop(NumberStops, byte), byte <= ' ' || isOneOf(",/]}", byte)) << i;
        EXPECT_EQ(IsStop(NonDigits, byte), !isOneOf("0123456789", byte)) << i;
        EXPECT_EQ(IsStop(NonBlanks, byte), !isOneOf(" \t\r", byte)) << i;
    }
}

TEST(JsonRuns, StringsOfAllLengthsAreCopied)
{
    for (size_t length = 0; length <= longest; ++length)
    {
        const std::string text = Letters(length);
        ExpectString(Quoted(text), text);
        ExpectString('\'' + text + '\'', text, JsonOption::SingleQuotes);
        ExpectString(Quoted(text + '\''), text + '\'');
        ExpectFailure('"' + text, JsonError::UnexpectedEnd, length + 1);
        ExpectFailure('"' + text + '\\', JsonError::UnexpectedEnd, length + 2);
    }
}

TEST(JsonRuns, EscapesAreResolvedAtEveryPlace)
{
    struct Row
    {
        std::string_view written;
        std::string_view meant;
    };
    constexpr Row rows[] = {{"\\n", "\n"},
                            {"\\\"", "\""},
                            {"\\\\\\\\", "\\\\"},
                            {"\\u0041", "A"},
                            {"\\u00e9", "\xC3\xA9"},
                            {"\\u20AC", "\xE2\x82\xAC"},
                            {"\\ud83d\\ude00", "\xF0\x9F\x98\x80"},
                            {"\x01", "\x01"},
                            {"\x0C", "\x0C"},
                            {"\x0E", "\x0E"},
                            {"\x7F", "\x7F"},
                            {"\x80", "\x80"},
                            {"\xFF", "\xFF"}};
    for (const Row& row : rows)
    {
        ForEachPlace([&](const std::string& before, const std::string& after) {
            ExpectString(Quoted(before + std::string(row.written) + after),
                         before + std::string(row.meant) + after);
        });
    }
}

TEST(JsonRuns, WhatBreaksAStringIsFoundAtEveryPlace)
{
    struct Row
    {
        std::string_view broken;
        uint32_t error;
    };
    constexpr Row rows[] = {{"\t", JsonError::BadString},      {"\0"sv, JsonError::BadString},
                            {"\n", JsonError::BadEscape},      {"\r", JsonError::BadEscape},
                            {"\\x", JsonError::BadEscape},     {"\\u00g0", JsonError::BadEscape},
                            {"\\ude00", JsonError::BadEscape}, {"\\ud83d", JsonError::BadEscape}};
    for (const Row& row : rows)
    {
        ForEachPlace([&](const std::string& before, const std::string& after) {
            ExpectFailure(Quoted(before + std::string(row.broken) + after), row.error, before.size() + 1);
        });
    }
}

TEST(JsonRuns, NumbersOfAllLengthsAreKeptUpToWhatFollows)
{
    for (size_t length = 1; length <= longest; ++length)
    {
        const std::string digits = Digits(length);
        for (const std::string& number :
             {digits, '-' + digits, "0." + digits, digits + ".5e" + digits, digits + "E-1"})
        {
            for (const std::string_view end : {"", " ", "\t", "\n", "\r"})
            {
                const JsonTree tree = ParseInSteps(number + std::string(end));
                ASSERT_TRUE(tree.accepted && tree.IsFilled()) << number;
                ASSERT_EQ(TextOf(PayloadOf<JsonNumber>(tree.Root())), number);
            }
            for (const std::string_view close : {"]", ",1]", " ]", ", \"a text of more than a group\"]"})
            {
                const JsonTree tree = ParseInSteps('[' + number + std::string(close));
                ASSERT_TRUE(tree.accepted && tree.IsFilled()) << number << close;
                const JsonValue& value = *PayloadOf<JsonArray>(tree.Root()).first->value;
                ASSERT_EQ(TextOf(PayloadOf<JsonNumber>(value)), number);
            }
            ExpectFailure(number + "x   ", JsonError::BadNumber, number.size());
            ExpectFailure(number + "/", JsonError::BadNumber, number.size());
        }
    }
}

TEST(JsonRuns, WhatBreaksANumberIsFoundAtEveryPlace)
{
    for (size_t length = 1; length <= longest; ++length)
    {
        for (size_t place = 1; place <= length; ++place)
        {
            for (const char broken :
                 {'/', ':', 'x', '\0', '\x80', '\xB5'}) // 0xB5 is a digit but for the highest bit
            {
                std::string text = Digits(length + jsonGroupSize);
                text[place] = broken;
                ExpectFailure(text, JsonError::BadNumber, place);
            }
        }
    }
}

TEST(JsonRuns, WhatIsWrongWithANumberIsFoundWhateverItsLengthAndWhateverFollows)
{
    for (size_t length = 1; length <= longest; ++length)
    {
        const std::string digits = Digits(length);
        for (size_t space = 1; space <= longest; ++space)
        {
            const std::string after(space, ' ');
            ExpectFailure('0' + digits + after, JsonError::BadNumber, 1);
            ExpectFailure("-0" + digits + ".5" + after, JsonError::BadNumber, 2);
            ExpectFailure(digits + '.' + after, JsonError::BadNumber, length + 1);
            ExpectFailure('-' + digits + ".e5" + after, JsonError::BadNumber, length + 2);
            ExpectFailure("-." + digits + after, JsonError::BadNumber, 1);
            ExpectFailure("0." + digits + '.' + after, JsonError::BadNumber, length + 2);
            ExpectFailure("0." + digits + 'e' + after, JsonError::BadNumber, length + 3);
            ExpectFailure(digits + ".5x" + after, JsonError::BadNumber, length + 2);
        }
    }
}

TEST(JsonRuns, WhitespaceOfAllLengthsIsSkippedAndItsLinesCount)
{
    for (size_t before = 0; before <= longest; ++before)
    {
        for (size_t after = 0; after <= longest; ++after)
        {
            const std::string space = std::string(before, ' ') + '\n' + std::string(after, '\t');
            const JsonTree tree = ParseInSteps(space + "true" + space, JsonOption::RecordPositions);
            ASSERT_TRUE(tree.accepted && tree.IsFilled());
            const auto column = static_cast<uint32_t>(after + 1);
            ASSERT_TRUE(
                IsSamePosition(PositionOf(tree.Root()), {static_cast<uint32_t>(before) + column, 2, column}))
                << before << ", " << after;
            ExpectFailure(space, JsonError::UnexpectedEnd, space.size());
            ExpectFailure(space + '\v', JsonError::BadValue, space.size());
            ExpectFailure(space + '\xA0', JsonError::BadValue, space.size());
        }
    }
}

TEST(JsonRuns, AllLineFeedsOfAGroupCount)
{
    for (size_t length = 1; length <= longest; ++length)
    {
        const JsonTree tree = ParseInSteps(std::string(length, '\n') + "x\n\n");
        ASSERT_EQ(tree.sized.error, JsonError::BadValue);
        ASSERT_EQ(tree.sized.lineNumber, length + 1);
        ASSERT_EQ(tree.sized.lineOffset, length - 1);
    }
}

/// Lines of three depths, of which each can be the same as the one before it, deeper or less deep.
TEST(JsonRuns, LinesOfAnyDepthFollowEachOther)
{
    constexpr uint32_t deepest = 2 * jsonGroupSize + 1;
    for (uint32_t number = 0; number < deepest * deepest * deepest && !testing::Test::HasFailure(); ++number)
    {
        const uint32_t depths[] = {number % deepest, number / deepest % deepest, number / deepest / deepest};
        std::string text = "[";
        uint32_t offsets[3];
        for (size_t i = 0; i < 3; ++i)
        {
            text += (i != 0 ? ",\n" : "\n") + std::string(depths[i], ' ');
            offsets[i] = static_cast<uint32_t>(text.size());
            text += "10";
        }
        const JsonTree tree = ParseInSteps(text + "\n]", JsonOption::RecordPositions);
        ASSERT_TRUE(tree.accepted && tree.IsFilled()) << text;
        const JsonArrayElement* element = PayloadOf<JsonArray>(tree.Root()).first;
        for (uint32_t i = 0; i < 3; ++i, element = element->next)
        {
            ASSERT_TRUE(IsSamePosition(PositionOf(*element->value), {offsets[i], i + 2, depths[i] + 1}))
                << text;
        }
    }
}
} // namespace
} // namespace Torvane::Testing
