#include "Shared/Serialization/Windows/JsonFile.h"

#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFile.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/TestMemorySystem.h"

#include <gtest/gtest.h>

namespace Torvane::Testing
{
namespace
{
std::string Narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end());
}

class JsonFileTest : public testing::Test
{
protected:
    bool Load(const std::wstring& path)
    {
        return LoadPreference(path.c_str(), "Network", timeout);
    }

    TemporaryFolder folder;
    TestMemorySystem memory;
    RecordedLog log;
    IntPreference timeout = {"timeout", 7};
};

TEST_F(JsonFileTest, IsReadAndClosedWithoutLogging)
{
    const std::wstring path = folder.MakeFile(L"a.json", R"({"Network":{"timeout":1500}})");
    EXPECT_TRUE(Load(path));
    EXPECT_EQ(timeout.value, 1500);
    EXPECT_TRUE(log.GetLines().empty());
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(JsonFileTest, KeepsItsDocumentAndTheFileUntilItIsClosed)
{
    const std::wstring path = folder.MakeFile(L"a.json", " [1, 2]\r\n");
    JsonFile json = {};
    ASSERT_TRUE(OpenJsonFile(path.c_str(), json));
    EXPECT_EQ(json.root->type, JsonType::Array);
    EXPECT_FALSE(IsUnused(path));
    CloseJsonFile(json);
    EXPECT_EQ(json.root, nullptr);
    EXPECT_EQ(json.file.view, nullptr);
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(JsonFileTest, IsASuccessEvenWithoutTheKey)
{
    EXPECT_TRUE(Load(folder.MakeFile(L"a.json", "{}")));
    EXPECT_TRUE(Load(folder.MakeFile(L"b.json", R"({"General":{"timeout":1}})")));
    EXPECT_TRUE(Load(folder.MakeFile(L"c.json", R"({"Network":{"timeout":"1"}})")));
    EXPECT_EQ(timeout.value, 7);
    EXPECT_TRUE(log.GetLines().empty());
}

TEST_F(JsonFileTest, IsSkippedSilentlyIfItDoesNotExist)
{
    EXPECT_FALSE(Load(folder / L"none.json"));
    EXPECT_FALSE(Load(folder / L"no folder\\none.json"));
    EXPECT_FALSE(Load(L""));
    EXPECT_TRUE(log.GetLines().empty());
}

TEST_F(JsonFileTest, CannotBeMappedWithoutBytesWhichIsNoError)
{
    const std::wstring path = folder.MakeFile(L"empty.json");
    EXPECT_FALSE(Load(path));
    ASSERT_EQ(log.GetLines().size(), 2u);
    EXPECT_EQ(log.GetLines()[0],
              "DBG Cannot create mapped file " + Narrow(path) + " with open mode 0x80000000.");
    EXPECT_EQ(log.GetLines()[1].substr(0, 10), "DBG Error:");
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(JsonFileTest, IsSkippedIfItIsAFolderOrInUse)
{
    EXPECT_FALSE(Load(folder.MakeFolder(L"folder.json")));
    const std::wstring path = folder.MakeFile(L"used.json", "{}");
    const HANDLE user = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(user, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(Load(path));
    CloseHandle(user);
    EXPECT_EQ(log.Count("DBG Cannot open file " + Narrow(path) + " with open mode 0x80000000."), 1u);
    for (const std::string& line : log.GetLines())
    {
        EXPECT_EQ(line.substr(0, 4), "DBG ");
    }
}

TEST_F(JsonFileTest, IsOneErrorLineIfItIsMalformedAndStaysOpen)
{
    const std::wstring path = MakePersistentFile(R"({"Network":{"timeout":1},})");
    EXPECT_FALSE(Load(path));
    EXPECT_EQ(timeout.value, 7);
    ASSERT_EQ(log.GetLines().size(), 1u);
    EXPECT_EQ(log.GetLines()[0], "ERR Failed to parse malformed JSON from " + Narrow(path));
    EXPECT_FALSE(IsUnused(path));
}

TEST_F(JsonFileTest, IsReadInStrictMode)
{
    const char* const documents[] = {"",
                                     R"({"Network":{"timeout":1}} // comment)",
                                     "{'Network':{}}",
                                     "{Network:{}}",
                                     R"({"Network":{"timeout":0x1}})",
                                     R"("Network":{"timeout":1})",
                                     "\xEF\xBB\xBF{}"};
    for (const char* document : documents)
    {
        EXPECT_FALSE(Load(MakePersistentFile(document))) << document;
    }
    EXPECT_EQ(timeout.value, 7);
}

TEST_F(JsonFileTest, NeedsNothingAfterItsEndEvenAtTheEndOfAPage)
{
    // A file of a whole page ends with a number: the byte after it can't be read.
    JsonFile json = {};
    const std::wstring path = folder.MakeFile(L"page.json", std::string(4095, ' ') + "5");
    ASSERT_TRUE(OpenJsonFile(path.c_str(), json));
    EXPECT_EQ(json.root->type, JsonType::Number);
    EXPECT_EQ(ReadInteger(*static_cast<const JsonNumber*>(json.root->payload)), 5);
    CloseJsonFile(json);
}
} // namespace
} // namespace Torvane::Testing
