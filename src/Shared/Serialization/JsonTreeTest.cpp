#include "tests/Support/JsonTestText.h"
#include "tests/Support/JsonTestTree.h"

#include <gtest/gtest.h>

/// \file
/// The tree: where its records and texts are, its size, and that it can be written out again.

namespace Torvane::Testing
{
namespace
{
/// Visits a block in the order in which its records and texts are expected.
class BlockWalk
{
public:
    explicit BlockWalk(const JsonTree& tree)
        : record(tree.block.get())
        , text(tree.block.get() + tree.sized.domSize)
    {
    }

    /// The record that comes next, which `pointer` must point to.
    template<typename Record>
    const Record& Expect(const void* pointer, size_t size = sizeof(Record))
    {
        EXPECT_EQ(pointer, record);
        const Record* expected = reinterpret_cast<const Record*>(record);
        record += size;
        return *expected;
    }

    template<typename Text>
    void ExpectText(const Text& holder, std::string_view expected)
    {
        EXPECT_EQ(holder.text, text);
        EXPECT_EQ(TextOf(holder), expected);
        text += expected.size() + 1;
    }

    void ExpectEnd(const JsonTree& tree)
    {
        EXPECT_EQ(record, tree.block.get() + tree.sized.domSize);
        EXPECT_EQ(text, record + tree.sized.dataSize);
    }

private:
    const char* record;
    const char* text;
};

/// The numbers of records and the length of all texts with their terminators, as the tree's sizes.
struct Counts
{
    size_t values;
    size_t strings;
    size_t numbers;
    size_t objects;
    size_t members;
    size_t arrays;
    size_t elements;
    size_t textBytes;
};

void ExpectSizes(std::string_view text, const Counts& counts)
{
    const JsonTree tree = ParseInSteps(text);
    ASSERT_TRUE(tree.accepted) << text;
    EXPECT_TRUE(tree.IsFilled()) << text;
    EXPECT_EQ(tree.sized.domSize,
              counts.values * sizeof(JsonValue) + counts.strings * sizeof(JsonString) +
                  counts.numbers * sizeof(JsonNumber) + counts.objects * sizeof(JsonObject) +
                  counts.members * sizeof(JsonObjectElement) + counts.arrays * sizeof(JsonArray) +
                  counts.elements * sizeof(JsonArrayElement))
        << text;
    EXPECT_EQ(tree.sized.dataSize, counts.textBytes) << text;

    const JsonTree placed = ParseInSteps(text, JsonOption::RecordPositions);
    EXPECT_TRUE(placed.IsFilled()) << text;
    EXPECT_EQ(placed.sized.domSize - tree.sized.domSize,
              counts.values * (sizeof(JsonPlacedValue) - sizeof(JsonValue)) +
                  counts.strings * (sizeof(JsonPlacedString) - sizeof(JsonString)))
        << text;
    EXPECT_EQ(placed.sized.dataSize, counts.textBytes) << text;
}

TEST(JsonTree, IsAsLargeAsItsRecordsAndTexts)
{
    //                                 values, strings, numbers, objects, members, arrays, elements, texts
    ExpectSizes("true", {1, 0, 0, 0, 0, 0, 0, 0});
    ExpectSizes("12.5", {1, 0, 1, 0, 0, 0, 0, 5});
    ExpectSizes("\"\"", {1, 1, 0, 0, 0, 0, 0, 1});
    ExpectSizes("\"a\\n\\u0041\\u00e9\\u20ac\\ud83d\\ude00\"",
                {1, 1, 0, 0, 0, 0, 0, 1 + 1 + 1 + 2 + 3 + 4 + 1});
    ExpectSizes("{}", {1, 0, 0, 1, 0, 0, 0, 0});
    ExpectSizes("[]", {1, 0, 0, 0, 0, 1, 0, 0});
    ExpectSizes("[null,[]]", {3, 0, 0, 0, 0, 2, 2, 0});
    ExpectSizes("{\"ab\":{\"\":0},\"c\":\"d\"}", {4, 4, 1, 2, 3, 0, 0, 3 + 1 + 2 + 2 + 2});
}

TEST(JsonTree, ContainsRecordsInTheOrderOfTheTextAndTextsAfterThem)
{
    const JsonTree tree = ParseInSteps("{\"a\": [1, \"xy\", false], \"bc\": {}}");
    ASSERT_TRUE(tree.accepted);
    BlockWalk walk(tree);
    const JsonValue& root = walk.Expect<JsonValue>(tree.block.get());
    const JsonObject& object = walk.Expect<JsonObject>(root.payload);
    EXPECT_EQ(object.count, 2u);

    const JsonObjectElement& first = walk.Expect<JsonObjectElement>(object.first);
    walk.ExpectText(walk.Expect<JsonString>(first.name), "a");
    const JsonValue& list = walk.Expect<JsonValue>(first.value);
    const JsonArray& array = walk.Expect<JsonArray>(list.payload);
    EXPECT_EQ(array.count, 3u);
    const JsonArrayElement& one = walk.Expect<JsonArrayElement>(array.first);
    const JsonValue& number = walk.Expect<JsonValue>(one.value);
    walk.ExpectText(walk.Expect<JsonNumber>(number.payload), "1");
    const JsonArrayElement& two = walk.Expect<JsonArrayElement>(one.next);
    const JsonValue& string = walk.Expect<JsonValue>(two.value);
    walk.ExpectText(walk.Expect<JsonString>(string.payload), "xy");
    const JsonArrayElement& three = walk.Expect<JsonArrayElement>(two.next);
    EXPECT_EQ(walk.Expect<JsonValue>(three.value).payload, nullptr);
    EXPECT_EQ(three.next, nullptr);

    const JsonObjectElement& second = walk.Expect<JsonObjectElement>(first.next);
    walk.ExpectText(walk.Expect<JsonString>(second.name), "bc");
    const JsonValue& empty = walk.Expect<JsonValue>(second.value);
    EXPECT_EQ(walk.Expect<JsonObject>(empty.payload).first, nullptr);
    EXPECT_EQ(second.next, nullptr);
    walk.ExpectEnd(tree);
}

TEST(JsonTree, ContainsPositionsAfterValuesAndStrings)
{
    const JsonTree tree = ParseInSteps("{\n \"a\": [10,\n\"b\"]}", JsonOption::RecordPositions);
    ASSERT_TRUE(tree.accepted);
    EXPECT_TRUE(tree.IsFilled());
    BlockWalk walk(tree);
    const JsonValue& root = walk.Expect<JsonValue>(tree.block.get(), sizeof(JsonPlacedValue));
    EXPECT_TRUE(IsSamePosition(PositionOf(root), {0, 1, 0}));
    const JsonObject& object = walk.Expect<JsonObject>(root.payload);
    const JsonObjectElement& member = walk.Expect<JsonObjectElement>(object.first);
    const JsonString& name = walk.Expect<JsonString>(member.name, sizeof(JsonPlacedString));
    EXPECT_TRUE(IsSamePosition(PositionOf(name), {3, 2, 2}));
    const JsonValue& list = walk.Expect<JsonValue>(member.value, sizeof(JsonPlacedValue));
    EXPECT_TRUE(IsSamePosition(PositionOf(list), {8, 2, 7}));
    const JsonArray& array = walk.Expect<JsonArray>(list.payload);
    const JsonArrayElement& one = walk.Expect<JsonArrayElement>(array.first);
    const JsonValue& number = walk.Expect<JsonValue>(one.value, sizeof(JsonPlacedValue));
    EXPECT_TRUE(IsSamePosition(PositionOf(number), {9, 2, 8}));
    walk.Expect<JsonNumber>(number.payload);
    const JsonArrayElement& two = walk.Expect<JsonArrayElement>(one.next);
    const JsonValue& value = walk.Expect<JsonValue>(two.value, sizeof(JsonPlacedValue));
    EXPECT_TRUE(IsSamePosition(PositionOf(value), {13, 3, 1}));
    const JsonString& string = walk.Expect<JsonString>(value.payload, sizeof(JsonPlacedString));
    EXPECT_TRUE(IsSamePosition(PositionOf(string), {13, 3, 1}));
    walk.Expect<char>(tree.block.get() + tree.sized.domSize);
}

TEST(JsonTree, ContainsThePositionOfARootAfterWhitespaceAndWithoutBraces)
{
    const JsonTree value = ParseInSteps("\n\n  true", JsonOption::RecordPositions);
    EXPECT_TRUE(IsSamePosition(PositionOf(value.Root()), {4, 3, 3}));
    const JsonTree members = ParseInSteps(
        "\n a:1", JsonOption::RecordPositions | JsonOption::RootWithoutBraces | JsonOption::UnquotedNames);
    ASSERT_TRUE(members.accepted);
    EXPECT_TRUE(IsSamePosition(PositionOf(members.Root()), {2, 2, 2}));
    EXPECT_TRUE(IsSamePosition(PositionOf(*PayloadOf<JsonObject>(members.Root()).first->name), {2, 2, 2}));
}

TEST(JsonTree, CopiesAllTextsSoThatTheSourceCanBeFreed)
{
    std::string source = "{\"name\":[\"text\",12]}";
    JsonParseState state = StartJsonParse(source.data(), static_cast<uint32_t>(source.size()), 0);
    JsonValue* root = ParseJson(state);
    ASSERT_NE(root, nullptr);
    source.assign(source.size(), '#');
    std::string written;
    WriteValue(written, *root);
    EXPECT_EQ(written, "{\"name\":[\"text\",12]}");
    FreeJson(root);
}

TEST(JsonTree, IsTheSameInOneCallAsInSteps)
{
    constexpr std::string_view text = "[1,\n {\"a\": \"b\"}]\n\t "; // the first value is in the first line
    for (const uint32_t flags : {uint32_t{0}, uint32_t{JsonOption::RecordPositions}})
    {
        const JsonTree tree = ParseInSteps(text, flags);
        ASSERT_TRUE(tree.accepted);
        JsonParseState state = StartJsonParse(text.data(), static_cast<uint32_t>(text.size()), flags);
        JsonValue* root = ParseJson(state);
        ASSERT_NE(root, nullptr);
        EXPECT_TRUE(
            IsSameValue(*root, tree.Root(), flags != 0 ? ComparePositions::Yes : ComparePositions::No));
        EXPECT_EQ(state.offset, tree.built.offset);
        EXPECT_EQ(state.lineNumber, tree.built.lineNumber);
        EXPECT_EQ(state.lineOffset, tree.built.lineOffset);
        FreeJson(root);
    }
}

TEST(JsonTree, EndsPassTwoAtTheEndOfTheValue)
{
    const JsonTree tree = ParseInSteps(" {\"a\":\n[]} \n");
    ASSERT_TRUE(tree.accepted);
    EXPECT_EQ(tree.built.offset, 10u);
    EXPECT_EQ(tree.built.lineNumber, 2u);
    EXPECT_EQ(tree.built.lineOffset, 6u);
}

TEST(JsonTree, IsTheSameIfPassTwoDoesNotKnowTheSizeOfTheTexts)
{
    constexpr std::string_view text =
        "[\"a string of more than sixteen characters\", 12345678901234567890, \"\"]";
    const JsonTree tree = ParseInSteps(text);
    ASSERT_TRUE(tree.accepted);
    const size_t size = tree.sized.domSize + tree.sized.dataSize;
    const std::unique_ptr<char, decltype(&free)> block(static_cast<char*>(malloc(size)), &free);
    JsonParseState state = StartJsonParse(text.data(), static_cast<uint32_t>(text.size()), 0);
    state.dom = block.get() + sizeof(JsonValue);
    state.data = block.get() + tree.sized.domSize;
    JsonValue& root = *reinterpret_cast<JsonValue*>(block.get());
    BuildJson(state, 0, root);
    EXPECT_TRUE(IsSameValue(root, tree.Root(), ComparePositions::No));
    EXPECT_EQ(state.data, block.get() + size);
}

TEST(JsonTree, StopsCountingAtTheLargestNumberAndThenFails)
{
    JsonParseState state = StartJsonParse("[\"abcdef\"]", 10, 0);
    state.domSize = UINT32_MAX - 4;
    state.dataSize = UINT32_MAX - 6;
    EXPECT_EQ(SizeJson(state, 0), 0u);
    EXPECT_EQ(state.domSize, UINT32_MAX);
    EXPECT_EQ(state.dataSize, UINT32_MAX);

    state = StartJsonParse("\"abcdef\"", 8, 0);
    state.dataSize = UINT32_MAX - static_cast<uint32_t>(sizeof(JsonValue) + sizeof(JsonString)) - 7;
    EXPECT_EQ(ParseJson(state), nullptr);
}

TEST(JsonTree, WrittenOutGivesTheSameTree)
{
    RandomJson random(20240501);
    for (int i = 0; i < 20000; ++i)
    {
        const std::string text = random.Document();
        const JsonTree tree = ParseInSteps(text);
        ASSERT_TRUE(tree.accepted) << text << ": error " << tree.sized.error << " at " << tree.sized.offset;
        ASSERT_TRUE(tree.IsFilled()) << text;
        const std::string written = WriteTree(tree);
        const JsonTree again = ParseInSteps(written);
        ASSERT_TRUE(again.accepted) << written;
        ASSERT_TRUE(IsSameValue(tree.Root(), again.Root(), ComparePositions::No)) << text;
        ASSERT_EQ(WriteTree(again), written);
    }
}

TEST(JsonTree, IsTheSameForTheSameText)
{
    RandomJson random(20240502);
    for (int i = 0; i < 5000; ++i)
    {
        const std::string text = random.Document();
        const JsonTree first = ParseInSteps(text, JsonOption::RecordPositions);
        const JsonTree second = ParseInSteps(text, JsonOption::RecordPositions);
        ASSERT_TRUE(first.accepted && second.accepted) << text;
        ASSERT_EQ(first.sized.domSize, second.sized.domSize);
        ASSERT_TRUE(IsSameValue(first.Root(), second.Root(), ComparePositions::Yes)) << text;
    }
}

TEST(JsonTree, DiffersWhereTheTextDoes)
{
    constexpr const char* texts[] = {"[1]",          "[2]",       "[\"1\"]",           "[]",
                                     "[1,1]",        "{\"a\":1}", "{\"b\":1}",         "{}",
                                     "{\"a\":null}", "[true]",    "{\"a\":1,\"a\":1}", "[[1]]"};
    for (const char* left : texts)
    {
        for (const char* right : texts)
        {
            EXPECT_EQ(
                IsSameValue(ParseInSteps(left).Root(), ParseInSteps(right).Root(), ComparePositions::No),
                left == right)
                << left << " and " << right;
        }
    }
}

std::string Nest(uint32_t levels, std::string_view open, std::string_view close)
{
    std::string text;
    for (uint32_t i = 0; i < levels; ++i)
    {
        text += open;
    }
    text += "0";
    for (uint32_t i = 0; i < levels; ++i)
    {
        text += close;
    }
    return text;
}

uint32_t CountLevels(const JsonValue* value)
{
    uint32_t levels = 0;
    for (;; ++levels)
    {
        if (value->type == JsonType::Array)
        {
            value = PayloadOf<JsonArray>(*value).first->value;
        }
        else if (value->type == JsonType::Object)
        {
            value = PayloadOf<JsonObject>(*value).first->value;
        }
        else
        {
            return levels;
        }
    }
}

constexpr uint32_t supportedLevels = 10000;

TEST(JsonTree, NestsTenThousandLevels)
{
    for (const std::string& text : {Nest(supportedLevels, "[", "]"), Nest(supportedLevels, "{\"a\":", "}")})
    {
        const JsonTree tree = ParseInSteps(text);
        ASSERT_TRUE(tree.accepted);
        EXPECT_TRUE(tree.IsFilled());
        EXPECT_EQ(CountLevels(&tree.Root()), supportedLevels);
    }
}

TEST(JsonTree, NestsTenThousandLevelsEvenIfTheTextIsBroken)
{
    const JsonTree tree = ParseInSteps(Nest(supportedLevels, "[", "]").substr(0, 2 * supportedLevels));
    EXPECT_EQ(tree.sized.error, JsonError::UnexpectedEnd);
    EXPECT_EQ(tree.sized.offset, 2 * supportedLevels);
}
} // namespace
} // namespace Torvane::Testing
