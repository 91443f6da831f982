#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFolder.h"

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr DWORD allSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string CreatingLine(const std::wstring& path)
{
    return LogLine("DBG Creating file at %ls", path.c_str());
}

Lines FailureLines(const std::wstring& path, DWORD code)
{
    return {CreatingLine(path), LogLine("DBG Cannot open file %ls.", path.c_str()), OSErrorLine(code)};
}

void Write(HANDLE file, const std::string& bytes)
{
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    EXPECT_EQ(written, bytes.size());
}

std::string ReadWhole(const std::wstring& path)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, allSharing, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    char bytes[256];
    DWORD count = 0;
    EXPECT_TRUE(ReadFile(file, bytes, sizeof(bytes), &count, nullptr));
    CloseHandle(file);
    return std::string(bytes, count);
}

class FileForWriting : public testing::Test
{
protected:
    RecordedLog log;
    TemporaryFolder folder;
};
} // namespace

TEST_F(FileForWriting, IsMadeAndTakesBytes)
{
    const std::wstring path = folder / L"new \u00E4.txt";
    const Result<HANDLE> result = CreateFileForWriting(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    Write(result.payload, "one");
    CloseHandle(result.payload);
    EXPECT_EQ(ReadWhole(path), "one");
    EXPECT_EQ(log.GetLines(), Lines({CreatingLine(path)}));
}

TEST_F(FileForWriting, TakesThePlaceOfAnEarlierOne)
{
    const std::wstring path = folder.MakeFile(L"file", "a longer text than the new one");
    const Result<HANDLE> result = CreateFileForWriting(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    Write(result.payload, "new");
    CloseHandle(result.payload);
    EXPECT_EQ(ReadWhole(path), "new");
}

TEST_F(FileForWriting, CanBeReadByOthersMeanwhileButNotWrittenOrDeleted)
{
    const std::wstring path = folder / L"file";
    const Result<HANDLE> result = CreateFileForWriting(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    Write(result.payload, "so far");
    EXPECT_EQ(ReadWhole(path), "so far");
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_WRITE, allSharing, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(DeleteFileW(path.c_str()));
    CloseHandle(result.payload);
}

TEST_F(FileForWriting, IsOpenedForWritingAloneAsAnOrdinaryFile)
{
    FakeImport create("CreateFileW",
                      [](decltype(&CreateFileW), LPCWSTR path, DWORD access, DWORD sharing,
                         LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD attributes,
                         HANDLE pattern) -> HANDLE {
                          EXPECT_EQ(std::wstring(path), L"X:\\log");
                          EXPECT_EQ(access, 0x40000000u);
                          EXPECT_EQ(sharing, 1u);
                          EXPECT_EQ(security, nullptr);
                          EXPECT_EQ(disposition, 2u);
                          EXPECT_EQ(attributes, 0x80u);
                          EXPECT_EQ(pattern, nullptr);
                          return reinterpret_cast<HANDLE>(0x1234);
                      });
    const Result<HANDLE> result = CreateFileForWriting(L"X:\\log");
    ASSERT_EQ(result.error, nullptr);
    EXPECT_EQ(result.payload, reinterpret_cast<HANDLE>(0x1234));
}

TEST_F(FileForWriting, FailsWithoutItsFolderWhichIsNotMade)
{
    const std::wstring path = folder / L"missing\\file";
    const Result<HANDLE> result = CreateFileForWriting(path.c_str());
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, "Cannot open file %ls.");
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(log.GetLines(), FailureLines(path, ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(GetFileAttributesW((folder / L"missing").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(FileForWriting, FailsAsLongAsSomebodyElseHoldsTheFile)
{
    const std::wstring path = folder / L"file";
    const Result<HANDLE> first = CreateFileForWriting(path.c_str());
    ASSERT_EQ(first.error, nullptr);
    log.Clear();
    const Result<HANDLE> second = CreateFileForWriting(path.c_str());
    EXPECT_STREQ(second.error, "Cannot open file %ls.");
    EXPECT_EQ(second.code, static_cast<uint32_t>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(log.GetLines(), FailureLines(path, ERROR_SHARING_VIOLATION));
    CloseHandle(first.payload);
}
} // namespace Torvane::Testing
