#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFolder.h"

#include <string.h>

#include <winioctl.h>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

/// \param words those of the failure, before the path.
Lines FailureLines(const char* words, const std::wstring& path, DWORD code)
{
    return {LogLine("DBG %hs %ls with open mode 0x80000000.", words, path.c_str()), OSErrorLine(code)};
}

constexpr char openFailure[] = "Cannot open file %ls with open mode 0x%X.";
constexpr char mappingFailure[] = "Cannot create mapped file %ls with open mode 0x%X.";
constexpr char viewFailure[] = "Cannot map view of file %ls with open mode 0x%X.";

bool IsMapped(const void* address)
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQuery(address, &information, sizeof(information));
    return information.State != MEM_FREE;
}

/// Keeps the calls that open and close a mapped file, in their order, and makes them.
class MappingJournal
{
public:
    Lines calls;
    HANDLE file = nullptr;
    HANDLE mapping = nullptr;
    bool viewFails = false;

private:
    struct Open
    {
        MappingJournal& journal;

        HANDLE operator()(decltype(&CreateFileW) real, LPCWSTR path, DWORD access, DWORD sharing,
                          LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD attributes,
                          HANDLE pattern) const
        {
            EXPECT_EQ(access, 0x80000000u);
            EXPECT_EQ(sharing, 1u);
            EXPECT_EQ(security, nullptr);
            EXPECT_EQ(disposition, 3u);
            EXPECT_EQ(attributes, 1u);
            EXPECT_EQ(pattern, nullptr);
            journal.calls.push_back("open");
            journal.file = real(path, access, sharing, security, disposition, attributes, pattern);
            return journal.file;
        }
    };

    struct CreateMapping
    {
        MappingJournal& journal;

        HANDLE operator()(decltype(&CreateFileMappingW) real, HANDLE mapped, LPSECURITY_ATTRIBUTES security,
                          DWORD protection, DWORD sizeHigh, DWORD sizeLow, LPCWSTR name) const
        {
            EXPECT_EQ(mapped, journal.file);
            EXPECT_EQ(security, nullptr);
            EXPECT_EQ(protection, 2u);
            EXPECT_EQ(sizeHigh, 0u);
            EXPECT_EQ(sizeLow, 0u);
            EXPECT_EQ(name, nullptr);
            journal.calls.push_back("create mapping");
            journal.mapping = real(mapped, security, protection, sizeHigh, sizeLow, name);
            return journal.mapping;
        }
    };

    struct MapView
    {
        MappingJournal& journal;

        LPVOID operator()(decltype(&MapViewOfFile) real, HANDLE mapped, DWORD access, DWORD offsetHigh,
                          DWORD offsetLow, SIZE_T size) const
        {
            EXPECT_EQ(mapped, journal.mapping);
            EXPECT_EQ(access, 4u);
            EXPECT_EQ(offsetHigh, 0u);
            EXPECT_EQ(offsetLow, 0u);
            EXPECT_EQ(size, 0u);
            journal.calls.push_back("map view");
            if (journal.viewFails)
            {
                SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return nullptr;
            }
            return real(mapped, access, offsetHigh, offsetLow, size);
        }
    };

    struct UnmapView
    {
        MappingJournal& journal;

        BOOL operator()(decltype(&UnmapViewOfFile) real, LPCVOID view) const
        {
            journal.calls.push_back("unmap view");
            return real(view);
        }
    };

    struct Close
    {
        MappingJournal& journal;

        BOOL operator()(decltype(&CloseHandle) real, HANDLE handle) const
        {
            journal.calls.push_back(handle == journal.file      ? "close file"
                                    : handle == journal.mapping ? "close mapping"
                                                                : "close something else");
            return real(handle);
        }
    };

    FakeImport<Open> open{"CreateFileW", Open{*this}};
    FakeImport<CreateMapping> createMapping{"CreateFileMappingW", CreateMapping{*this}};
    FakeImport<MapView> mapView{"MapViewOfFile", MapView{*this}};
    FakeImport<UnmapView> unmapView{"UnmapViewOfFile", UnmapView{*this}};
    FakeImport<Close> close{"CloseHandle", Close{*this}};
};

class MappedFiles : public testing::Test
{
protected:
    RecordedLog log;
    TemporaryFolder folder;
};
} // namespace

TEST_F(MappedFiles, AMappedFileShowsAllBytesOfTheFileAndLogsNothing)
{
    std::string bytes;
    for (uint32_t i = 0; i < 3 * 4096 + 5; ++i)
    {
        bytes.push_back(static_cast<char>(i % 251));
    }
    const std::wstring path = folder.MakeFile(L"bytes", bytes);
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    MappedFile file = result.payload;
    EXPECT_EQ(memcmp(file.view, bytes.data(), bytes.size()), 0);
    MEMORY_BASIC_INFORMATION view = {};
    VirtualQuery(file.view, &view, sizeof(view));
    EXPECT_EQ(view.AllocationBase, file.view);
    EXPECT_EQ(view.Protect, static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(view.RegionSize, 4u * 4096);
    CloseMappedFile(file);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(MappedFiles, APathMayHoldBlanksAndLettersOfAnyLanguage)
{
    const std::wstring path = folder.MakeFile(L"a b \u00E4\u0416\u6728 c", "text");
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    MappedFile file = result.payload;
    EXPECT_EQ(memcmp(file.view, "text", 4), 0);
    CloseMappedFile(file);
}

TEST_F(MappedFiles, ClosingUnmapsClosesAndClearsTheRecord)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    MappedFile file = OpenMappedFile(path.c_str()).payload;
    const MappedFile opened = file;
    EXPECT_FALSE(IsUnused(path));
    CloseMappedFile(file);
    EXPECT_EQ(file.file, nullptr);
    EXPECT_EQ(file.mapping, nullptr);
    EXPECT_EQ(file.view, nullptr);
    EXPECT_FALSE(IsMapped(opened.view));
    EXPECT_FALSE(IsOpenHandle(opened.mapping));
    EXPECT_FALSE(IsOpenHandle(opened.file));
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(MappedFiles, AMappedFileCanBeReadAndMappedByOthersButNotWritten)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    MappedFile first = OpenMappedFile(path.c_str()).payload;
    const Result<MappedFile> second = OpenMappedFile(path.c_str());
    ASSERT_EQ(second.error, nullptr);
    MappedFile secondFile = second.payload;
    EXPECT_EQ(memcmp(secondFile.view, "text", 4), 0);
    CloseMappedFile(secondFile);

    const DWORD allSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_WRITE, allSharing, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    CloseMappedFile(first);
}

TEST_F(MappedFiles, AMissingFileFailsAtOpening)
{
    const std::wstring path = folder / L"mi\u00DFing";
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, openFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot open file", path, ERROR_FILE_NOT_FOUND));
}

TEST_F(MappedFiles, AMissingFolderFailsAtOpening)
{
    const std::wstring path = folder / L"missing\\file";
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    EXPECT_STREQ(result.error, openFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot open file", path, ERROR_PATH_NOT_FOUND));
}

TEST_F(MappedFiles, AFolderFailsAtOpening)
{
    const Result<MappedFile> result = OpenMappedFile(folder.GetPath().c_str());
    EXPECT_STREQ(result.error, openFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot open file", folder.GetPath(), ERROR_ACCESS_DENIED));
}

TEST_F(MappedFiles, AFileThatSomebodyWritesToFailsAtOpening)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    const HANDLE writer =
        CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    CloseHandle(writer);
    EXPECT_STREQ(result.error, openFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot open file", path, ERROR_SHARING_VIOLATION));
}

TEST_F(MappedFiles, AFileThatIsLockedWholeFailsAtOpening)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    const HANDLE reader = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    CloseHandle(reader);
    EXPECT_STREQ(result.error, openFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_SHARING_VIOLATION));
}

TEST_F(MappedFiles, AnEmptyFileFailsAtTheMappingAndIsClosed)
{
    const std::wstring path = folder.MakeFile(L"empty");
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, mappingFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_FILE_INVALID));
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot create mapped file", path, ERROR_FILE_INVALID));
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(MappedFiles, AReadOnlyFileCanBeMapped)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    MappedFile file = result.payload;
    CloseMappedFile(file);
}

namespace
{
/// Makes a file of so many bytes, of which the last is `last`. It takes little room on the disk.
std::wstring MakeLargeFile(const TemporaryFolder& folder, int64_t size, char last)
{
    const std::wstring path = folder.MakeFile(L"large");
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    DWORD count = 0;
    DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &count, nullptr);
    LARGE_INTEGER position = {};
    position.QuadPart = size - 1;
    EXPECT_TRUE(SetFilePointerEx(file, position, nullptr, FILE_BEGIN));
    EXPECT_TRUE(WriteFile(file, &last, 1, &count, nullptr));
    CloseHandle(file);
    return path;
}
} // namespace

TEST_F(MappedFiles, ALargeFileIsMappedWhole)
{
    constexpr uint32_t size = 200u << 20;
    const std::wstring path = MakeLargeFile(folder, size, 'z');
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    MappedFile file = result.payload;
    EXPECT_EQ(file.view[0], 0);
    EXPECT_EQ(file.view[size - 1], 'z');
    CloseMappedFile(file);
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(MappedFiles, AFileThatIsLargerThanTheAddressSpaceHasRoomForFailsAtTheView)
{
    const std::wstring path = MakeLargeFile(folder, int64_t(3) << 30, 'z');
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, viewFailure);
    EXPECT_NE(result.code, 0u);
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot map view of file", path, result.code));
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(MappedFiles, ClosingGoesInTheReverseOrderOfOpening)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    MappingJournal journal;
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    ASSERT_EQ(result.error, nullptr);
    EXPECT_EQ(result.payload.file, journal.file);
    EXPECT_EQ(result.payload.mapping, journal.mapping);
    MappedFile file = result.payload;
    EXPECT_EQ(journal.calls, Lines({"open", "create mapping", "map view"}));
    journal.calls.clear();
    CloseMappedFile(file);
    EXPECT_EQ(journal.calls, Lines({"unmap view", "close mapping", "close file"}));
}

TEST_F(MappedFiles, AFailureAtTheViewClosesTheMappingAndThenTheFile)
{
    const std::wstring path = folder.MakeFile(L"file", "text");
    MappingJournal journal;
    journal.viewFails = true;
    const Result<MappedFile> result = OpenMappedFile(path.c_str());
    EXPECT_STREQ(result.error, viewFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(log.GetLines(), FailureLines("Cannot map view of file", path, ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(journal.calls, Lines({"open", "create mapping", "map view", "close mapping", "close file"}));
    EXPECT_FALSE(IsOpenHandle(journal.file));
    EXPECT_FALSE(IsOpenHandle(journal.mapping));
}
} // namespace Torvane::Testing
