#include "Shared/Serialization/Windows/JsonFile.h"

#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
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

using Lines = std::vector<std::string>;

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

TEST_F(JsonFileTest, IsSkippedSilentlyIfItWasNeverWritten)
{
    const std::wstring path = folder.MakeFile(L"a.json", R"({"Network":{"timeout":1}})");
    FILETIME written = {};
    uint32_t opened = 0;
    const FakeImport ask("GetFileAttributesExW",
                         [&](decltype(&GetFileAttributesExW) real, LPCWSTR file, GET_FILEEX_INFO_LEVELS level,
                             LPVOID attributes) -> BOOL {
                             EXPECT_EQ(file, path);
                             EXPECT_EQ(level, GetFileExInfoStandard);
                             const BOOL known = real(file, level, attributes);
                             static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(attributes)->ftLastWriteTime = written;
                             return known;
                         });
    const FakeImport open("CreateFileW",
                          [&](decltype(&CreateFileW) real, LPCWSTR file, DWORD access, DWORD sharing,
                              LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                              HANDLE pattern) -> HANDLE {
                              ++opened;
                              return real(file, access, sharing, security, disposition, flags, pattern);
                          });
    EXPECT_FALSE(Load(path));
    EXPECT_EQ(opened, 0u);
    EXPECT_EQ(timeout.value, 7);
    EXPECT_EQ(log.GetLines(), Lines());

    // Either half of the time is enough.
    for (const FILETIME time : {FILETIME{1, 0}, FILETIME{0, 1}})
    {
        written = time;
        timeout.value = 7;
        EXPECT_TRUE(Load(path));
        EXPECT_EQ(timeout.value, 1);
    }
    EXPECT_EQ(opened, 2u);
}

TEST_F(JsonFileTest, IsSkippedIfItsAttributesCannotBeAskedForWhateverTheyHold)
{
    const std::wstring path = folder.MakeFile(L"a.json", R"({"Network":{"timeout":1}})");
    const FakeImport ask("GetFileAttributesExW",
                         [](decltype(&GetFileAttributesExW) real, LPCWSTR file, GET_FILEEX_INFO_LEVELS level,
                            LPVOID attributes) -> BOOL {
                             real(file, level, attributes);
                             return FALSE;
                         });
    EXPECT_FALSE(Load(path));
    EXPECT_EQ(timeout.value, 7);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(JsonFileTest, HasAsManyBytesAsTheLowWordOfItsSizeSays)
{
    const std::string document = R"({"Network":{"timeout":1}})";
    const std::wstring path = folder.MakeFile(L"a.json", document + " and more");
    const FakeImport ask("GetFileInformationByHandle",
                         [&](decltype(&GetFileInformationByHandle) real, HANDLE file,
                             LPBY_HANDLE_FILE_INFORMATION information) -> BOOL {
                             const BOOL known = real(file, information);
                             EXPECT_TRUE(known);
                             EXPECT_EQ(information->nFileSizeLow, document.size() + 9);
                             information->nFileSizeHigh = 1;
                             information->nFileSizeLow = static_cast<DWORD>(document.size());
                             return known;
                         });
    EXPECT_TRUE(Load(path));
    EXPECT_EQ(timeout.value, 1);
    EXPECT_EQ(log.GetLines(), Lines());
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
    const std::wstring inner = folder.MakeFolder(L"folder.json");
    EXPECT_FALSE(Load(inner));
    const std::wstring path = folder.MakeFile(L"used.json", R"({"Network":{"timeout":1}})");
    const HANDLE user = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(user, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(Load(path));
    CloseHandle(user);
    EXPECT_EQ(timeout.value, 7);
    EXPECT_EQ(log.GetLines(),
              (Lines{LogLine("DBG Cannot open file %ls with open mode 0x80000000.", inner.c_str()),
                     OSErrorLine(ERROR_ACCESS_DENIED),
                     LogLine("DBG Cannot open file %ls with open mode 0x80000000.", path.c_str()),
                     OSErrorLine(ERROR_SHARING_VIOLATION)}));
}

TEST_F(JsonFileTest, IsOneErrorLineIfItIsMalformedAndStaysOpen)
{
    const std::wstring path = MakePersistentFile(R"({"Network":{"timeout":1},})");
    ASSERT_TRUE(IsUnused(path));
    JsonFile json = {};
    uint32_t closed = 0;
    const void* view = nullptr;
    {
        const FakeImport map("MapViewOfFile",
                             [&view](decltype(&MapViewOfFile) real, HANDLE mapping, DWORD access, DWORD high,
                                     DWORD low, SIZE_T size) -> LPVOID {
                                 view = real(mapping, access, high, low, size);
                                 return const_cast<void*>(view);
                             });
        const FakeImport close("CloseHandle", [&closed](decltype(&CloseHandle) real, HANDLE handle) -> BOOL {
            ++closed;
            return real(handle);
        });
        EXPECT_FALSE(OpenJsonFile(path.c_str(), json));
    }
    EXPECT_EQ(log.GetLines(), Lines{"ERR Failed to parse malformed JSON from " + Narrow(path)});
    EXPECT_EQ(json.root, nullptr);
    EXPECT_EQ(json.file.view, nullptr);
    EXPECT_EQ(closed, 0u);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(QueryMemory(view).State, static_cast<DWORD>(MEM_COMMIT));
    EXPECT_FALSE(IsUnused(path));

    EXPECT_FALSE(Load(path));
    EXPECT_EQ(timeout.value, 7);
}

TEST_F(JsonFileTest, IsReadInStrictMode)
{
    struct Extension
    {
        uint32_t option; ///< that the document needs; 0 if there is none
        const char* document;
    };
    const Extension extensions[] = {
        {JsonOption::TrailingComma, R"({"Network":{"timeout":1},})"},
        {JsonOption::UnquotedNames, R"({Network:{"timeout":1}})"},
        {JsonOption::RootWithoutBraces, R"("Network":{"timeout":1})"},
        {JsonOption::EqualsSign, R"({"Network"={"timeout":1}})"},
        {JsonOption::NoCommas, R"({"a":1 "Network":{"timeout":1}})"},
        {JsonOption::Comments, R"({"Network":{"timeout":1}} // comment)"},
        {JsonOption::SingleQuotes, R"({'Network':{"timeout":1}})"},
        {JsonOption::Hexadecimal, R"({"Network":{"timeout":0x1}})"},
        {JsonOption::LeadingPlus, R"({"Network":{"timeout":+1}})"},
        {JsonOption::LoosePoint, R"({"a":.5,"Network":{"timeout":1}})"},
        {JsonOption::InfinityAndNaN, R"({"a":NaN,"Network":{"timeout":1}})"},
        {JsonOption::LineBreaksInStrings, "{\"a\":\"\n\",\"Network\":{\"timeout\":1}}"},
        {0, "\xEF\xBB\xBF{}"},
        {0, " "}};
    for (const Extension& extension : extensions)
    {
        log.Clear();
        const std::string document = extension.document;
        const std::wstring path = MakePersistentFile(document);
        EXPECT_FALSE(Load(path)) << document;
        EXPECT_EQ(log.GetLines(), Lines{"ERR Failed to parse malformed JSON from " + Narrow(path)})
            << document;

        // With its option it would be read.
        JsonParseState state =
            StartJsonParse(document.data(), static_cast<uint32_t>(document.size()), extension.option);
        JsonValue* root = ParseJson(state);
        EXPECT_EQ(root != nullptr, extension.option != 0) << document;
        FreeJson(root);
    }
    EXPECT_EQ(timeout.value, 7);
}

TEST_F(JsonFileTest, HasNoPositionsInItsTree)
{
    JsonFile json = {};
    ASSERT_TRUE(OpenJsonFile(folder.MakeFile(L"a.json", "5").c_str(), json));
    EXPECT_EQ(json.root->payload, json.root + 1);
    CloseJsonFile(json);
}

TEST_F(JsonFileTest, GivesItsTreeBackWhenItIsClosed)
{
    JsonFile json = {};
    ASSERT_TRUE(OpenJsonFile(folder.MakeFile(L"a.json", "5").c_str(), json));
    const void* tree = json.root;
    uint32_t frees = 0;
    const FakeImport release("free", [&](decltype(&free) real, void* block) {
        frees += block == tree;
        real(block);
    });
    CloseJsonFile(json);
    EXPECT_EQ(frees, 1u);
}

TEST_F(JsonFileTest, IsAnErrorLineIfThereIsNoMemoryForItsTree)
{
    const std::wstring path = MakePersistentFile(R"({"Network":{"timeout":1}})");
    JsonParseState state = StartJsonParse(R"({"Network":{"timeout":1}})", 25, 0);
    ASSERT_EQ(SizeJson(state, 0), 0u);
    const size_t treeSize = state.domSize + state.dataSize;
    uint32_t refused = 0;
    {
        const FakeImport allocate("malloc", [&](decltype(&malloc) real, size_t size) -> void* {
            if (size != treeSize)
            {
                return real(size);
            }
            ++refused;
            return nullptr;
        });
        EXPECT_FALSE(Load(path));
    }
    EXPECT_EQ(refused, 1u);
    EXPECT_EQ(timeout.value, 7);
    EXPECT_EQ(log.GetLines(), Lines{"ERR Failed to parse malformed JSON from " + Narrow(path)});
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
