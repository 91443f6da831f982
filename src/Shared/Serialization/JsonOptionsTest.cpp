#include "Shared/Serialization/JsonSizePass.h"
#include "tests/Support/JsonTestTree.h"

#include <gtest/gtest.h>

/// \file
/// The extensions of the grammar: each is accepted with its option and with that alone.

namespace Torvane::Testing
{
namespace
{
struct Extension
{
    std::string_view text;
    std::string_view written; ///< what the tree gives, written out
    uint32_t strictError;     ///< how the text fails without the option; 0 if only by what follows its value
};

struct Broken
{
    std::string_view text;
    uint32_t error;
    uint32_t offset;
};

void ExpectExtension(uint32_t flags, const Extension& row)
{
    const JsonTree tree = ParseInSteps(row.text, flags);
    ASSERT_TRUE(tree.accepted) << row.text << ": error " << tree.sized.error << " at " << tree.sized.offset;
    EXPECT_TRUE(tree.IsFilled()) << row.text;
    EXPECT_EQ(WriteTree(tree), row.written) << row.text;

    const JsonTree strict = ParseInSteps(row.text, 0);
    EXPECT_FALSE(strict.accepted) << row.text;
    EXPECT_EQ(strict.sizePassed ? 0 : strict.sized.error, row.strictError) << row.text;
}

template<size_t Count>
void ExpectExtensions(uint32_t flags, const Extension (&rows)[Count])
{
    for (const Extension& row : rows)
    {
        ExpectExtension(flags, row);
    }
}

template<size_t Count>
void ExpectFailures(uint32_t flags, const Broken (&rows)[Count])
{
    for (const Broken& row : rows)
    {
        const JsonTree tree = ParseInSteps(row.text, flags);
        EXPECT_FALSE(tree.sizePassed) << row.text;
        EXPECT_EQ(tree.sized.error, row.error) << row.text;
        EXPECT_EQ(tree.sized.offset, row.offset) << row.text;
    }
}

TEST(JsonOptions, HaveThePublishedBits)
{
    EXPECT_EQ(JsonOption::TrailingComma, 0x1u);
    EXPECT_EQ(JsonOption::UnquotedNames, 0x2u);
    EXPECT_EQ(JsonOption::RootWithoutBraces, 0x4u);
    EXPECT_EQ(JsonOption::EqualsSign, 0x8u);
    EXPECT_EQ(JsonOption::NoCommas, 0x10u);
    EXPECT_EQ(JsonOption::Comments, 0x20u);
    EXPECT_EQ(JsonOption::RecordPositions, 0x80u);
    EXPECT_EQ(JsonOption::SingleQuotes, 0x100u);
    EXPECT_EQ(JsonOption::Hexadecimal, 0x200u);
    EXPECT_EQ(JsonOption::LeadingPlus, 0x400u);
    EXPECT_EQ(JsonOption::LoosePoint, 0x800u);
    EXPECT_EQ(JsonOption::InfinityAndNaN, 0x1000u);
    EXPECT_EQ(JsonOption::LineBreaksInStrings, 0x2000u);
}

TEST(JsonOptions, TrailingCommaIsOneCommaAfterTheLastMemberOrElement)
{
    ExpectExtensions(JsonOption::TrailingComma, {{"[1,]", "[1]", JsonError::BadValue},
                                                 {"[1 , ]", "[1]", JsonError::BadValue},
                                                 {"{\"a\":1,}", "{\"a\":1}", JsonError::BadString},
                                                 {"[[1,],]", "[[1]]", JsonError::BadValue}});
    ExpectFailures(JsonOption::TrailingComma, {{"[,]", JsonError::BadValue, 1},
                                               {"{,}", JsonError::BadString, 1},
                                               {"[1,,]", JsonError::BadValue, 3},
                                               {"[1 2]", JsonError::CommaExpected, 3},
                                               {"[1,", JsonError::UnexpectedEnd, 3},
                                               {"[1,}", JsonError::BadValue, 3}});
}

TEST(JsonOptions, UnquotedNamesAreLettersDigitsAndUnderscores)
{
    ExpectExtensions(JsonOption::UnquotedNames,
                     {{"{a:1}", "{\"a\":1}", JsonError::BadString},
                      {"{ aZ_09 : 1, 1x:2}", "{\"aZ_09\":1,\"1x\":2}", JsonError::BadString},
                      {"{\"a\":1,b:2}", "{\"a\":1,\"b\":2}", JsonError::BadString}});
    ExpectFailures(JsonOption::UnquotedNames, {{"{:1}", JsonError::BadString, 1},
                                               {"{'a':1}", JsonError::BadString, 1},
                                               {"{a-b:1}", JsonError::ColonExpected, 2},
                                               {"{\xC3\xA9:1}", JsonError::BadString, 1},
                                               {"{a", JsonError::UnexpectedEnd, 2},
                                               {"{\"a\\x\":1}", JsonError::BadString, 3},
                                               {"[a]", JsonError::BadValue, 1}});
}

TEST(JsonOptions, RootWithoutBracesIsAnObject)
{
    ExpectExtensions(JsonOption::RootWithoutBraces,
                     {{"\"a\":1", "\"a\":1", 0},
                      {" \"a\" : 1 , \"b\":{\"c\":[]} \n", "\"a\":1,\"b\":{\"c\":[]}", 0},
                      {"\"a\":-", "\"a\":-", 0},
                      {"", "", JsonError::UnexpectedEnd},
                      {" ", "", JsonError::UnexpectedEnd}});
    for (const std::string_view text : {"", "\"a\":1"})
    {
        const JsonTree tree = ParseInSteps(text, JsonOption::RootWithoutBraces);
        EXPECT_EQ(tree.Root().type, JsonType::Object);
        EXPECT_EQ(PayloadOf<JsonObject>(tree.Root()).count, text.empty() ? 0u : 1u);
    }
    ExpectFailures(JsonOption::RootWithoutBraces, {{"\"a\":1,", JsonError::UnexpectedEnd, 6},
                                                   {"\"a\":1}", JsonError::CommaExpected, 5},
                                                   {"\"a\":1 \"b\":2", JsonError::CommaExpected, 6},
                                                   {"\"a\":{\"b\":1", JsonError::UnexpectedEnd, 10},
                                                   {"\"a\":{", JsonError::UnexpectedEnd, 5},
                                                   {"\"a\"", JsonError::UnexpectedEnd, 3},
                                                   {"\"a\":", JsonError::UnexpectedEnd, 4},
                                                   {"[1]", JsonError::BadString, 0}});
}

TEST(JsonOptions, RootWithoutBracesMayHaveThemNevertheless)
{
    for (const std::string_view text : {"{\"a\":1}", " { \"a\" : 1 } "})
    {
        const JsonTree tree = ParseInSteps(text, JsonOption::RootWithoutBraces);
        ASSERT_TRUE(tree.accepted) << text;
        EXPECT_EQ(WriteTree(tree), "\"a\":1");
    }
    ExpectFailures(JsonOption::RootWithoutBraces, {{"{\"a\":1", JsonError::UnexpectedEnd, 6}});
    EXPECT_FALSE(ParseInSteps("{\"a\":1} \"b\":2", JsonOption::RootWithoutBraces).accepted);
}

TEST(JsonOptions, RootWithoutBracesEndsInACommaIfThatIsAllowedToo)
{
    ExpectExtensions(JsonOption::RootWithoutBraces | JsonOption::TrailingComma,
                     {{"\"a\":1,", "\"a\":1", 0}, {"\"a\":1 , ", "\"a\":1", 0}});
}

TEST(JsonOptions, EqualsSignReplacesAColon)
{
    ExpectExtensions(JsonOption::EqualsSign, {{"{\"a\"=1,\"b\" : 2, \"c\" = 3}", "{\"a\":1,\"b\":2,\"c\":3}",
                                               JsonError::ColonExpected}});
    ExpectFailures(JsonOption::EqualsSign,
                   {{"{\"a\":=1}", JsonError::BadValue, 5}, {"{\"a\" 1}", JsonError::ColonExpected, 5}});
}

TEST(JsonOptions, NoCommasMakesThemOptional)
{
    ExpectExtensions(
        JsonOption::NoCommas,
        {{"[1 2,3]", "[1,2,3]", JsonError::CommaExpected},
         {"[\"a\"\"b\"[]{}true\"c\"]", "[\"a\",\"b\",[],{},true,\"c\"]", JsonError::CommaExpected},
         {"{\"a\":1 \"b\":{}\"c\":2}", "{\"a\":1,\"b\":{},\"c\":2}", JsonError::CommaExpected}});
    ExpectFailures(JsonOption::NoCommas, {{"[1,,2]", JsonError::BadValue, 3},
                                          {"[1,]", JsonError::BadValue, 3},
                                          {"[1}", JsonError::BadValue, 2},
                                          {"{\"a\":1]", JsonError::BadString, 6},
                                          {"[1", JsonError::UnexpectedEnd, 2}});
}

TEST(JsonOptions, CommentsCountAsWhitespace)
{
    ExpectExtensions(JsonOption::Comments,
                     {{"// c\n1", "1", JsonError::BadValue},
                      {"/* c */1", "1", JsonError::BadValue},
                      {"/**/1", "1", JsonError::BadValue},
                      {"/***/1", "1", JsonError::BadValue},
                      {"/* / // * */1", "1", JsonError::BadValue},
                      {"1// c", "1", JsonError::BadNumber},
                      {"1 // c", "1", 0},
                      {"1//", "1", JsonError::BadNumber},
                      {"[] //", "[]", 0},
                      {"1 /* c */", "1", 0},
                      {"[1/* c */,/* c */2// c\n]", "[1,2]", JsonError::BadNumber},
                      {"{/* c */\"a\"/* c */:/* c */1/* c */}", "{\"a\":1}", JsonError::BadString}});
    ExpectFailures(JsonOption::Comments, {{"/1", JsonError::BadValue, 0},
                                          {"/", JsonError::BadValue, 0},
                                          {"[1/]", JsonError::BadNumber, 2},
                                          {"//", JsonError::UnexpectedEnd, 2},
                                          {"// c", JsonError::UnexpectedEnd, 4},
                                          {"// c\r1", JsonError::UnexpectedEnd, 6},
                                          {"[/* c", JsonError::UnexpectedEnd, 1},
                                          {"[/*/]", JsonError::UnexpectedEnd, 1}});
}

TEST(JsonOptions, ACommentWithoutItsEndFailsEvenAfterTheValue)
{
    for (const std::string_view text : {"1 /*", "1 /* *", "1 /*/", "1 /"})
    {
        EXPECT_TRUE(ParseInSteps(text, JsonOption::Comments).sizePassed) << text;
        EXPECT_FALSE(ParseInSteps(text, JsonOption::Comments).accepted) << text;
    }
    EXPECT_FALSE(ParseInSteps("\"a\":1 /*", JsonOption::Comments | JsonOption::RootWithoutBraces).accepted);
}

TEST(JsonOptions, LinesInsideCommentsCount)
{
    const JsonTree tree = ParseInSteps("// c\n/* \n\n */ x", JsonOption::Comments);
    EXPECT_EQ(tree.sized.error, JsonError::BadValue);
    EXPECT_EQ(tree.sized.lineNumber, 4u);
    EXPECT_EQ(tree.sized.lineOffset, 9u);
}

TEST(JsonOptions, SingleQuotesEncloseStringsAndNames)
{
    ExpectExtensions(JsonOption::SingleQuotes,
                     {{"'a'", "\"a\"", JsonError::BadValue},
                      {"'a\"b'", "\"a\\\"b\"", JsonError::BadValue},
                      {"{'a':'\\n'}", "{\"a\":\"\\u000a\"}", JsonError::BadString},
                      {"[\"it's\", 'x']", "[\"it's\",\"x\"]", JsonError::BadValue}});
    ExpectFailures(JsonOption::SingleQuotes, {{"'a\"", JsonError::UnexpectedEnd, 3},
                                              {"\"a'", JsonError::UnexpectedEnd, 3},
                                              {"'\\''", JsonError::BadEscape, 1}});
}

TEST(JsonOptions, HexadecimalNumbersBeginWithZeroAndX)
{
    ExpectExtensions(JsonOption::Hexadecimal, {{"0x1F", "0x1F", JsonError::BadNumber},
                                               {"[0X09af,-0xAF]", "[0X09af,-0xAF]", JsonError::BadNumber},
                                               {"0x", "0x", JsonError::BadNumber}});
    ExpectFailures(JsonOption::Hexadecimal, {{"[0x]", JsonError::BadNumber, 3},
                                             {"[0xg]", JsonError::BadNumber, 3},
                                             {"0x1g", JsonError::BadNumber, 3},
                                             {"0x1.5", JsonError::BadNumber, 3},
                                             {"00x1", JsonError::BadNumber, 1},
                                             {"1x1", JsonError::BadNumber, 1},
                                             {"+0x1", JsonError::BadValue, 0}});
}

TEST(JsonOptions, LeadingPlusIsASign)
{
    ExpectExtensions(JsonOption::LeadingPlus, {{"+1", "+1", JsonError::BadValue},
                                               {"[+0.5e+1]", "[+0.5e+1]", JsonError::BadValue},
                                               {"+", "+", JsonError::BadValue}});
    ExpectFailures(JsonOption::LeadingPlus, {{"+-1", JsonError::BadNumber, 1},
                                             {"++1", JsonError::BadNumber, 1},
                                             {"[+]", JsonError::BadNumber, 2},
                                             {"+.5", JsonError::BadNumber, 1},
                                             {"+01", JsonError::BadNumber, 2},
                                             {"+Infinity", JsonError::BadNumber, 1}});
}

TEST(JsonOptions, LoosePointNeedsDigitsOnOneSideOnly)
{
    ExpectExtensions(JsonOption::LoosePoint,
                     {{"[.5]", "[.5]", JsonError::BadValue},
                      {"[5.]", "[5.]", JsonError::BadNumber},
                      {"[-.5e1,0.,-5.e-1]", "[-.5e1,0.,-5.e-1]", JsonError::BadNumber},
                      {".", ".", JsonError::BadValue}});
    ExpectFailures(JsonOption::LoosePoint, {{"[.]", JsonError::BadNumber, 2},
                                            {"[-.]", JsonError::BadNumber, 3},
                                            {"[.e1]", JsonError::BadNumber, 2},
                                            {"[1..]", JsonError::BadNumber, 3},
                                            {"+.5", JsonError::BadValue, 0}});
}

TEST(JsonOptions, InfinityAndNaNAreNumbersWithAnySign)
{
    ExpectExtensions(JsonOption::InfinityAndNaN,
                     {{"[Infinity,NaN]", "[Infinity,NaN]", JsonError::BadValue},
                      {"[-Infinity,-NaN]", "[-Infinity,-NaN]", JsonError::BadNumber},
                      {"[+Infinity,+NaN]", "[+Infinity,+NaN]", JsonError::BadValue},
                      {"Infinity", "Infinity", JsonError::BadValue}});
    EXPECT_EQ(ParseInSteps("NaN", JsonOption::InfinityAndNaN).Root().type, JsonType::Number);
    ExpectFailures(JsonOption::InfinityAndNaN, {{"Infinit", JsonError::BadNumber, 0},
                                                {"[Nan]", JsonError::BadNumber, 1},
                                                {"NaN1", JsonError::BadNumber, 3},
                                                {"+1", JsonError::BadNumber, 0},
                                                {"+", JsonError::BadNumber, 0},
                                                {"+I", JsonError::BadNumber, 1},
                                                {"+N", JsonError::BadNumber, 1},
                                                {"--NaN", JsonError::BadNumber, 1}});
}

TEST(JsonOptions, LineBreaksInStringsAreKeptWithOrWithoutABackslash)
{
    ExpectExtensions(
        JsonOption::LineBreaksInStrings,
        {{"\"a\nb\rc\r\nd\"", "\"a\\u000ab\\u000dc\\u000d\\u000ad\"", JsonError::BadEscape},
         {"\"a\\\nb\\\rc\\\r\nd\"", "\"a\\u000ab\\u000dc\\u000d\\u000ad\"", JsonError::BadEscape},
         {"{\"a\nb\":1}", "{\"a\\u000ab\":1}", JsonError::BadString}});
    ExpectFailures(JsonOption::LineBreaksInStrings, {{"\"a\tb\"", JsonError::BadString, 2},
                                                     {"\"\\\t\"", JsonError::BadEscape, 1},
                                                     {"\"\\\n", JsonError::UnexpectedEnd, 3}});
}

TEST(JsonOptions, LinesInsideStringsCount)
{
    const JsonTree tree = ParseInSteps("[\"a\n\\\n\", x]", JsonOption::LineBreaksInStrings);
    EXPECT_EQ(tree.sized.error, JsonError::BadValue);
    EXPECT_EQ(tree.sized.lineNumber, 3u);
    EXPECT_EQ(tree.sized.lineOffset, 5u);
}

TEST(JsonOptions, WorkTogether)
{
    const uint32_t flags = 0x3FBF;
    ExpectExtensions(
        flags, {{"// all\na = [+1 .5 0xFf 'x\ny' -Infinity,] /* b */ 'b': {c: +.5e1,}\n,",
                 "\"a\":[+1,.5,0xFf,\"x\\u000ay\",-Infinity],\"b\":{\"c\":+.5e1}", JsonError::BadValue}});
}

TEST(JsonOptions, AnUnassignedBitChangesNothing)
{
    for (const uint32_t flag : {0x40u, 0x4000u, 0x80000000u})
    {
        EXPECT_FALSE(ParseInSteps("[1,]", flag).accepted);
        EXPECT_EQ(WriteTree(ParseInSteps("[1,{}]", flag)), "[1,{}]");
    }
}

// Callers check the first character of strings and containers. The functions that read them check it as well.
TEST(JsonParts, FailWhereTheirFirstCharacterIsMissing)
{
    JsonSizer string(StartJsonParse("x", 1, 0));
    EXPECT_EQ(ReadString(string, string.source, nullptr), nullptr);
    EXPECT_EQ(string.error, JsonError::QuoteExpected);
    EXPECT_EQ(string.offset, 0u);

    JsonSizer container(StartJsonParse("x", 1, 0));
    EXPECT_EQ(ReadContainer(container, container.source, nullptr), nullptr);
    EXPECT_EQ(container.error, JsonError::BracketExpected);
    EXPECT_EQ(container.offset, 0u);
}
} // namespace
} // namespace Torvane::Testing
