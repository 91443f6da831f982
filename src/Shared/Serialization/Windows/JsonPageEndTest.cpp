#include "tests/Support/JsonTestText.h"
#include "tests/Support/JsonTestTree.h"

#include <gtest/gtest.h>

#include <windows.h>

/// \file
/// Texts and trees that end where the last accessible page ends, as a mapped file can: reading or writing after them
/// faults.

namespace Torvane::Testing
{
namespace
{
class GuardedMemory
{
public:
    static constexpr size_t size = 0x10000;

    GuardedMemory()
        : start(static_cast<char*>(VirtualAlloc(nullptr, size + 0x1000, MEM_RESERVE, PAGE_NOACCESS)))
    {
        VirtualAlloc(start, size, MEM_COMMIT, PAGE_READWRITE);
    }

    ~GuardedMemory()
    {
        VirtualFree(start, 0, MEM_RELEASE);
    }

    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    char* EndsWith(size_t bytes) const
    {
        return start + size - bytes;
    }

private:
    char* start;
};

class JsonPageEnd : public testing::Test
{
protected:
    /// \return the tree, written out; nothing if the text isn't accepted.
    std::string Read(std::string_view text, uint32_t flags = 0)
    {
        char* copy = source.EndsWith(text.size());
        memcpy(copy, text.data(), text.size());
        const auto start = [&] {
            return StartJsonParse(copy, static_cast<uint32_t>(text.size()), flags);
        };
        JsonParseState state = start();
        if (SizeJson(state, 0) != 0)
        {
            return "";
        }
        SkipJsonWhitespace(state);
        if (state.offset != state.size)
        {
            return "";
        }
        const size_t treeSize = state.domSize + state.dataSize;
        char* block = tree.EndsWith(treeSize);
        state.offset = 0;
        state.dom = block + sizeof(JsonValue);
        state.data = block + state.domSize;
        JsonValue& root = *reinterpret_cast<JsonValue*>(block);
        BuildJson(state, 0, root);
        EXPECT_EQ(state.data, block + treeSize) << text;
        std::string written;
        WriteValue(written, root);
        return written;
    }

    /// Expects that a text isn't accepted before its last character.
    void ExpectOnlyTheWhole(std::string_view text, uint32_t flags)
    {
        EXPECT_NE(Read(text, flags), "");
        for (size_t length = 0; length < text.size(); ++length)
        {
            EXPECT_EQ(Read(text.substr(0, length), flags), "") << length;
        }
    }

    GuardedMemory source;
    GuardedMemory tree;
};

TEST_F(JsonPageEnd, IsNotPassedWhateverIsLast)
{
    for (const std::string_view last : {"\"\"",
                                        "\"a\"",
                                        "\"a string of more than sixteen characters\"",
                                        "\"\\n\"",
                                        "\"\\u20ac\"",
                                        "\"\\ud83d\\ude00\"",
                                        "1",
                                        "-",
                                        "0",
                                        "1.",
                                        "1e",
                                        "1e+",
                                        "1.5e10",
                                        "1234567890123456789012345678901234567890",
                                        "true",
                                        "false",
                                        "null",
                                        "[]",
                                        "{}",
                                        "[1]",
                                        "{\"a\":\"b\"}"})
    {
        const std::string expected = Read(last);
        EXPECT_NE(expected, "") << last;
        for (size_t space = 0; space <= 40; ++space)
        {
            EXPECT_EQ(Read(std::string(space, ' ') + std::string(last)), expected) << space << ", " << last;
        }
    }
}

TEST_F(JsonPageEnd, IsNotPassedByWhitespaceOrComments)
{
    for (size_t length = 0; length <= 40; ++length)
    {
        const std::string text(length, 'a');
        EXPECT_EQ(Read("{}" + std::string(length, '\n')), "{}");
        EXPECT_EQ(Read(std::string(length, ' ')), "");
        EXPECT_EQ(Read("{} //" + text, JsonOption::Comments), "{}");
        EXPECT_EQ(Read("{} /*" + text + "*/", JsonOption::Comments), "{}");
        EXPECT_EQ(Read("{} /*" + text + '*', JsonOption::Comments), "");
        EXPECT_EQ(Read("{} /*" + text, JsonOption::Comments), "");
    }
    EXPECT_EQ(Read("{} /", JsonOption::Comments), "");
    EXPECT_EQ(Read(""), "");
}

TEST_F(JsonPageEnd, IsNotPassedByTextsThatEndTooEarly)
{
    const std::string_view strict =
        R"({"name of sixteen": "a text of more than sixteen characters \" \u20ac\ud83d\ude00 ",)"
        "\n                    \"b\" : [ -12.5e+10 , true, false, null, {}, [] , \"\\n\" ] }";
    ExpectOnlyTheWhole(strict, 0);
    const std::string_view extended =
        "{name_of_sixteen_='a text of\nmore than sixteen \\\n characters' /* comment of more than sixteen */"
        "b: [-0x1F +.5 -Infinity NaN,],// comment of more than sixteen\n }";
    ExpectOnlyTheWhole(extended, 0x3F3B);
}

TEST_F(JsonPageEnd, IsNotPassedInRandomDocuments)
{
    RandomJson random(20240701);
    for (int i = 0; i < 20000; ++i)
    {
        const std::string text = random.Document();
        ASSERT_NE(Read(text), "") << text;
        Read(random.Mutate(text));
    }
}
} // namespace
} // namespace Torvane::Testing
