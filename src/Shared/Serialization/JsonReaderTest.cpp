#include "tests/Support/JsonTestTree.h"

#include <gtest/gtest.h>

/// \file
/// The strict grammar. See JsonOptionsTest.cpp for its extensions and JsonTreeTest.cpp for the tree.

namespace Torvane::Testing
{
namespace
{
using namespace std::string_view_literals;

/// The only value of a text, which must be accepted.
JsonTree Accept(std::string_view text)
{
    JsonTree tree = ParseInSteps(text);
    EXPECT_TRUE(tree.sizePassed) << text << ": error " << tree.sized.error << " at " << tree.sized.offset;
    EXPECT_TRUE(tree.accepted) << text << ": something follows the value";
    if (tree.accepted)
    {
        EXPECT_TRUE(tree.IsFilled()) << text;
    }
    return tree;
}

std::string Rewrite(std::string_view text)
{
    const JsonTree tree = Accept(text);
    return tree.accepted ? WriteTree(tree) : "";
}

/// A string's text, resolved.
std::string ReadString(std::string_view text)
{
    const JsonTree tree = Accept(text);
    if (!tree.accepted || tree.Root().type != JsonType::String)
    {
        ADD_FAILURE() << text << " is no string";
        return "";
    }
    const JsonString& string = PayloadOf<JsonString>(tree.Root());
    EXPECT_EQ(string.text[string.length], '\0');
    return std::string(TextOf(string));
}

struct Broken
{
    std::string_view text;
    uint32_t error;
    uint32_t offset;
};

void ExpectFailure(const Broken& broken)
{
    const JsonTree tree = ParseInSteps(broken.text);
    EXPECT_FALSE(tree.sizePassed) << broken.text;
    EXPECT_EQ(tree.sized.error, broken.error) << broken.text;
    EXPECT_EQ(tree.sized.offset, broken.offset) << broken.text;

    JsonParseState state = StartJsonParse(broken.text.data(), static_cast<uint32_t>(broken.text.size()), 0);
    EXPECT_EQ(ParseJson(state), nullptr) << broken.text;
}

template<size_t Count>
void ExpectFailures(const Broken (&rows)[Count])
{
    for (const Broken& row : rows)
    {
        ExpectFailure(row);
    }
}

TEST(JsonReader, AcceptsAnyValueAsTheRoot)
{
    EXPECT_EQ(Accept("\"text\"").Root().type, JsonType::String);
    EXPECT_EQ(Accept("12").Root().type, JsonType::Number);
    EXPECT_EQ(Accept("{}").Root().type, JsonType::Object);
    EXPECT_EQ(Accept("[]").Root().type, JsonType::Array);
    EXPECT_EQ(Accept("true").Root().type, JsonType::True);
    EXPECT_EQ(Accept("false").Root().type, JsonType::False);
    EXPECT_EQ(Accept("null").Root().type, JsonType::Null);
}

TEST(JsonReader, NumbersItsTypesAndErrorsAsPublished)
{
    EXPECT_EQ(static_cast<uint32_t>(JsonType::String), 0u);
    EXPECT_EQ(static_cast<uint32_t>(JsonType::Number), 1u);
    EXPECT_EQ(static_cast<uint32_t>(JsonType::Object), 2u);
    EXPECT_EQ(static_cast<uint32_t>(JsonType::Array), 3u);
    EXPECT_EQ(static_cast<uint32_t>(JsonType::True), 4u);
    EXPECT_EQ(static_cast<uint32_t>(JsonType::False), 5u);
    EXPECT_EQ(static_cast<uint32_t>(JsonType::Null), 6u);
    EXPECT_EQ(JsonError::CommaExpected, 1u);
    EXPECT_EQ(JsonError::ColonExpected, 2u);
    EXPECT_EQ(JsonError::QuoteExpected, 3u);
    EXPECT_EQ(JsonError::BadEscape, 4u);
    EXPECT_EQ(JsonError::BadNumber, 5u);
    EXPECT_EQ(JsonError::BadValue, 6u);
    EXPECT_EQ(JsonError::UnexpectedEnd, 7u);
    EXPECT_EQ(JsonError::BadString, 8u);
    EXPECT_EQ(JsonError::BracketExpected, 11u);
}

TEST(JsonReader, SkipsTabsLineFeedsCarriageReturnsAndBlanks)
{
    EXPECT_EQ(Rewrite("\t\n\r [\t\n\r 1\t\n\r ,\t\n\r {\t\n\r \"a\"\t\n\r :\t\n\r []\t\n\r }\t\n\r ]\t\n\r "),
              "[1,{\"a\":[]}]");
    ExpectFailures({{"\v1", JsonError::BadValue, 0},
                    {"\f1", JsonError::BadValue, 0},
                    {"\xC2\xA0"
                     "1",
                     JsonError::BadValue, 0},
                    {"\xEF\xBB\xBF[]", JsonError::BadValue, 0}});
}

TEST(JsonReader, ReturnsZeroFromPassOneOrOneOnFailure)
{
    JsonParseState state = StartJsonParse("[]", 2, 0);
    EXPECT_EQ(SizeJson(state, 0), 0u);
    state = StartJsonParse("[", 1, 0);
    EXPECT_EQ(SizeJson(state, 0), 1u);
}

TEST(JsonReader, CountsLinesByTheirLineFeeds)
{
    const JsonTree tree = ParseInSteps("[\n\r\n  1,\n   x]");
    EXPECT_EQ(tree.sized.error, JsonError::BadValue);
    EXPECT_EQ(tree.sized.lineNumber, 4u);
    EXPECT_EQ(tree.sized.lineOffset, 8u);
    EXPECT_EQ(tree.sized.offset, 12u);

    EXPECT_EQ(Accept("[]").sized.lineNumber, 1u);
    EXPECT_EQ(Accept("[\r]").sized.lineNumber, 1u);
}

TEST(JsonReader, ReportsWhetherAnythingFollowsTheWhitespace)
{
    JsonParseState state = StartJsonParse(" \n x", 4, 0);
    EXPECT_EQ(SkipJsonWhitespace(state), 0u);
    EXPECT_EQ(state.offset, 3u);
    EXPECT_EQ(state.error, 0u);
    EXPECT_EQ(state.lineNumber, 2u);
    EXPECT_EQ(state.lineOffset, 1u);

    state = StartJsonParse(" \n ", 3, 0);
    EXPECT_EQ(SkipJsonWhitespace(state), 1u);
    EXPECT_EQ(state.offset, 3u);
    EXPECT_EQ(state.error, JsonError::UnexpectedEnd);
}

TEST(JsonReader, FailsOnTextsThatEndTooEarly)
{
    ExpectFailures({{"", JsonError::UnexpectedEnd, 0},
                    {" \n", JsonError::UnexpectedEnd, 2},
                    {"[", JsonError::UnexpectedEnd, 1},
                    {"[ ", JsonError::UnexpectedEnd, 2},
                    {"[1", JsonError::UnexpectedEnd, 2},
                    {"[1,", JsonError::UnexpectedEnd, 3},
                    {"[[]", JsonError::UnexpectedEnd, 3},
                    {"{", JsonError::UnexpectedEnd, 1},
                    {"{\"a\"", JsonError::UnexpectedEnd, 4},
                    {"{\"a\":", JsonError::UnexpectedEnd, 5},
                    {"{\"a\":1", JsonError::UnexpectedEnd, 6},
                    {"{\"a\":1,", JsonError::UnexpectedEnd, 7},
                    {"\"", JsonError::UnexpectedEnd, 1},
                    {"\"abc", JsonError::UnexpectedEnd, 4},
                    {"\"abc\\", JsonError::UnexpectedEnd, 5},
                    {"\"abc\\\"", JsonError::UnexpectedEnd, 6}});
}

TEST(JsonReader, ReadsEmptyContainers)
{
    const JsonTree object = Accept("{}");
    EXPECT_EQ(PayloadOf<JsonObject>(object.Root()).count, 0u);
    EXPECT_EQ(PayloadOf<JsonObject>(object.Root()).first, nullptr);
    const JsonTree array = Accept("[]");
    EXPECT_EQ(PayloadOf<JsonArray>(array.Root()).count, 0u);
    EXPECT_EQ(PayloadOf<JsonArray>(array.Root()).first, nullptr);
}

TEST(JsonReader, KeepsTheOrderOfMembersEvenWithTwoOfOneName)
{
    const JsonTree tree = Accept("{\"b\":1,\"a\":2,\"b\":3}");
    EXPECT_EQ(PayloadOf<JsonObject>(tree.Root()).count, 3u);
    EXPECT_EQ(WriteTree(tree), "{\"b\":1,\"a\":2,\"b\":3}");
}

TEST(JsonReader, RequiresCommasBetweenItemsAndNoneAfterTheLast)
{
    EXPECT_EQ(Rewrite("[1, 2 ,3]"), "[1,2,3]");
    ExpectFailures({{"[1 2]", JsonError::CommaExpected, 3},
                    {"[1}", JsonError::CommaExpected, 2},
                    {"[true1]", JsonError::CommaExpected, 5},
                    {"[\"a\"\"b\"]", JsonError::CommaExpected, 4},
                    {"[[]{}]", JsonError::CommaExpected, 3},
                    {"{\"a\":1 \"b\":2}", JsonError::CommaExpected, 7},
                    {"{\"a\":1]", JsonError::CommaExpected, 6},
                    {"[1,]", JsonError::BadValue, 3},
                    {"[,1]", JsonError::BadValue, 1},
                    {"[,]", JsonError::BadValue, 1},
                    {"[1,,2]", JsonError::BadValue, 3},
                    {"{\"a\":1,}", JsonError::BadString, 7},
                    {"{,}", JsonError::BadString, 1}});
}

TEST(JsonReader, RequiresAColonAfterANameAndAValueAfterTheColon)
{
    EXPECT_EQ(Rewrite("{\"a\" : 1}"), "{\"a\":1}");
    ExpectFailures({{"{\"a\" 1}", JsonError::ColonExpected, 5},
                    {"{\"a\"=1}", JsonError::ColonExpected, 4},
                    {"{\"a\"}", JsonError::ColonExpected, 4},
                    {"{\"a\":}", JsonError::BadValue, 5},
                    {"{\"a\"::1}", JsonError::BadValue, 5}});
}

TEST(JsonReader, ReportsOneErrorForEveryBadName)
{
    ExpectFailures({{"{a:1}", JsonError::BadString, 1},
                    {"{1:1}", JsonError::BadString, 1},
                    {"{'a':1}", JsonError::BadString, 1},
                    {"{\"a", JsonError::BadString, 3},
                    {"{\"a\\x\":1}", JsonError::BadString, 3},
                    {"{\"a\n\":1}", JsonError::BadString, 3},
                    {"{\"a\t\":1}", JsonError::BadString, 3}});
}

TEST(JsonReader, ComparesWordsInFullAndNothingAfterThem)
{
    EXPECT_EQ(Rewrite("[true,false,null]"), "[true,false,null]");
    ExpectFailures({{"tru", JsonError::BadValue, 0},
                    {"t", JsonError::BadValue, 0},
                    {"fals", JsonError::BadValue, 0},
                    {"nul", JsonError::BadValue, 0},
                    {"[trux]", JsonError::BadValue, 1},
                    {"[False]", JsonError::BadValue, 1},
                    {"[nulL]", JsonError::BadValue, 1},
                    {"x", JsonError::BadValue, 0},
                    {"]", JsonError::BadValue, 0},
                    {"}", JsonError::BadValue, 0},
                    {"'a'", JsonError::BadValue, 0},
                    {"+1", JsonError::BadValue, 0},
                    {".5", JsonError::BadValue, 0},
                    {"Infinity", JsonError::BadValue, 0},
                    {"NaN", JsonError::BadValue, 0},
                    {"\0"sv, JsonError::BadValue, 0},
                    {"[\x80]", JsonError::BadValue, 1}});
}

TEST(JsonReader, FailsAfterTheSizePassWhereSomethingFollowsTheValue)
{
    for (const std::string_view text :
         {"{\"a\":1} x"sv, "[] []"sv, "truex"sv, "1 2"sv, "\"a\"\""sv, "[],"sv, "{}\0"sv})
    {
        const JsonTree tree = ParseInSteps(text);
        EXPECT_TRUE(tree.sizePassed) << text;
        EXPECT_FALSE(tree.accepted) << text;
        JsonParseState state = StartJsonParse(text.data(), static_cast<uint32_t>(text.size()), 0);
        EXPECT_EQ(ParseJson(state), nullptr) << text;
    }
}

TEST(JsonReader, HasNoComments)
{
    ExpectFailures({{"// c\n1", JsonError::BadValue, 0},
                    {"/* c */1", JsonError::BadValue, 0},
                    {"[1/* c */]", JsonError::BadNumber, 2},
                    {"[1 /* c */]", JsonError::CommaExpected, 3}});
    EXPECT_FALSE(ParseInSteps("1 // c").accepted);
}

TEST(JsonReader, ResolvesEscapes)
{
    EXPECT_EQ(ReadString(R"("\"\/\\\b\f\n\r\t")"), "\"/\\\b\f\n\r\t");
    EXPECT_EQ(ReadString(R"("\u0041\u007f")"), "A\x7F");
    EXPECT_EQ(ReadString(R"("\u0080\u07ff\u07FF")"), "\xC2\x80\xDF\xBF\xDF\xBF");
    EXPECT_EQ(ReadString(R"("\u0800\uffff\uD7FF\uE000")"),
              "\xE0\xA0\x80\xEF\xBF\xBF\xED\x9F\xBF\xEE\x80\x80");
    EXPECT_EQ(ReadString(R"("a\u0000b")"), "a\0b"sv);
}

TEST(JsonReader, MakesOneCharacterOfASurrogatePair)
{
    EXPECT_EQ(ReadString(R"("\ud83d\ude00")"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(ReadString(R"("\uD800\uDC00")"), "\xF0\x90\x80\x80");
    EXPECT_EQ(ReadString(R"("\uDBFF\uDFFF")"), "\xF4\x8F\xBF\xBF");
    ExpectFailures({{R"("\ud83d")", JsonError::BadEscape, 1},
                    {R"("\ud83d)", JsonError::BadEscape, 1},
                    {R"("\ud83d\n")", JsonError::BadEscape, 1},
                    {R"("\ud83dx\ude00")", JsonError::BadEscape, 1},
                    {R"("\ud83d\u0041")", JsonError::BadEscape, 1},
                    {R"("\ud83d\ud83d\ude00")", JsonError::BadEscape, 1},
                    {R"("\ud83d\ude0")", JsonError::BadEscape, 1},
                    {R"("\udc00")", JsonError::BadEscape, 1},
                    {R"("\uDC00\uDC00")", JsonError::BadEscape, 1},
                    {R"("\uD800\uDBFF")", JsonError::BadEscape, 1},
                    {R"("\uD800\uE000")", JsonError::BadEscape, 1},
                    {R"("\udfff\ud83d")", JsonError::BadEscape, 1}});
}

TEST(JsonReader, RejectsOtherEscapes)
{
    ExpectFailures({{R"("a\x")", JsonError::BadEscape, 2},
                    {R"("\'")", JsonError::BadEscape, 1},
                    {"\"\\x", JsonError::BadEscape, 1},
                    {R"("\0")", JsonError::BadEscape, 1},
                    {R"("\U0041")", JsonError::BadEscape, 1},
                    {"\"\\\n\"", JsonError::BadEscape, 1},
                    {R"("\u")", JsonError::BadEscape, 1},
                    {R"("\u004")", JsonError::BadEscape, 1},
                    {R"("\u004)", JsonError::BadEscape, 1},
                    {R"("\u004g")", JsonError::BadEscape, 1},
                    {R"("\u00 4")", JsonError::BadEscape, 1}});
}

TEST(JsonReader, RejectsRawTabsZeroesAndLineBreaksInStrings)
{
    ExpectFailures({{"\"a\tb\"", JsonError::BadString, 2},
                    {"\"a\0b\""sv, JsonError::BadString, 2},
                    {"\"a\nb\"", JsonError::BadEscape, 2},
                    {"\"a\rb\"", JsonError::BadEscape, 2}});
}

TEST(JsonReader, KeepsAllOtherBytesInStringsUnchanged)
{
    for (int byte = 1; byte < 256; ++byte)
    {
        const char character = static_cast<char>(byte);
        if (character == '\t' || character == '\n' || character == '\r' || character == '"' ||
            character == '\\')
        {
            continue;
        }
        EXPECT_EQ(ReadString(std::string{'"', character, '"'}), std::string(1, character)) << byte;
    }
}

TEST(JsonReader, KeepsNumbersAsWritten)
{
    for (const char* number : {"0", "-0", "7", "-12", "1234567890123456789012", "0.0", "12.50", "-0.001",
                               "1e5", "1E5", "1e+5", "1E-05", "0e0", "12.5e10"})
    {
        const JsonTree tree = Accept(std::string("[") + number + "]");
        const JsonValue& value = *PayloadOf<JsonArray>(tree.Root()).first->value;
        EXPECT_EQ(value.type, JsonType::Number);
        EXPECT_EQ(TextOf(PayloadOf<JsonNumber>(value)), number);
        EXPECT_EQ(PayloadOf<JsonNumber>(value).text[strlen(number)], '\0');
    }
}

TEST(JsonReader, RejectsNumbersOutsideTheGrammar)
{
    ExpectFailures({{"01", JsonError::BadNumber, 1},
                    {"[-01]", JsonError::BadNumber, 3},
                    {"[00]", JsonError::BadNumber, 2},
                    {"[1.]", JsonError::BadNumber, 3},
                    {"1. ", JsonError::BadNumber, 2},
                    {"1.e5", JsonError::BadNumber, 2},
                    {"-a", JsonError::BadNumber, 1},
                    {"[-]", JsonError::BadNumber, 2},
                    {"--1", JsonError::BadNumber, 1},
                    {"-.5", JsonError::BadNumber, 1},
                    {"- 1", JsonError::BadNumber, 1},
                    {"[1e]", JsonError::BadNumber, 3},
                    {"[1e+]", JsonError::BadNumber, 4},
                    {"1e1.5", JsonError::BadNumber, 3},
                    {"1.2.3", JsonError::BadNumber, 3},
                    {"-Infinity", JsonError::BadNumber, 1},
                    {"-NaN", JsonError::BadNumber, 1},
                    {"0x1F", JsonError::BadNumber, 1}});
}

TEST(JsonReader, RequiresWhitespaceACommaOrAClosingBracketAfterANumber)
{
    for (const char* text : {"1\t", "1\n", "1\r", "1 ", "[1,2]", "[1]", "{\"a\":1}"})
    {
        Accept(text);
    }
    ExpectFailures({{"1a", JsonError::BadNumber, 1},
                    {"0a", JsonError::BadNumber, 1},
                    {"1:", JsonError::BadNumber, 1},
                    {"1\"", JsonError::BadNumber, 1},
                    {"[1[", JsonError::BadNumber, 2},
                    {"1{", JsonError::BadNumber, 1},
                    {"1/", JsonError::BadNumber, 1},
                    {"1\v", JsonError::BadNumber, 1},
                    {"1\0"sv, JsonError::BadNumber, 1},
                    {"1.5a", JsonError::BadNumber, 3},
                    {"1e5a", JsonError::BadNumber, 3}});
    // Whether the bracket fits is checked later.
    ExpectFailure({"[1}", JsonError::CommaExpected, 2});
}

TEST(JsonReader, EndsANumberWhereTheTextEnds)
{
    for (const char* text : {"-", "1", "0", "-0", "1.", "0.5", "1e", "1E+", "1e-", "1e5"})
    {
        const JsonTree tree = Accept(text);
        EXPECT_EQ(TextOf(PayloadOf<JsonNumber>(tree.Root())), text);
    }
}
} // namespace
} // namespace Torvane::Testing
