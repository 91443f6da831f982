#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFolder.h"

#include <algorithm>

#include <objbase.h>
#include <shlobj.h>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

/// The text up to its length, which has to be the text up to its terminator too. Blobs carry the whole buffer: what
/// follows is cleared.
std::wstring TextOf(const FixedWideString& path)
{
    const std::wstring text(path.text, path.length);
    EXPECT_EQ(text, path.text);
    EXPECT_TRUE(std::all_of(path.text + path.length, std::end(path.text), [](wchar_t unit) {
        return unit == 0;
    })) << "after the text";
    return text;
}

std::wstring Normalize(const std::wstring& path)
{
    return TextOf(NormalizePath(path.c_str()));
}

std::wstring DirectoryOf(const std::wstring& path)
{
    return TextOf(GetDirectory(path.c_str(), static_cast<uint32_t>(path.size())));
}

std::wstring InUpperCase(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return towupper(c); });
    return text;
}

/// Makes a folder the current one as long as it lives.
class CurrentFolder
{
public:
    explicit CurrentFolder(const std::wstring& folder)
    {
        GetCurrentDirectoryW(MAX_PATH, before);
        EXPECT_TRUE(SetCurrentDirectoryW(folder.c_str()));
    }

    ~CurrentFolder()
    {
        SetCurrentDirectoryW(before);
    }

    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    wchar_t before[MAX_PATH] = {};
};

class Paths : public testing::Test
{
protected:
    Paths()
        : file(folder.MakeFile(L"Some File.txt"))
        , normalFolder(Normalize(folder.GetPath()))
        , normalFile(normalFolder + L"\\Some File.txt")
    {
    }

    RecordedLog log;
    TemporaryFolder folder;
    std::wstring file;
    std::wstring normalFolder;
    std::wstring normalFile;
};
} // namespace

TEST_F(Paths, AnAbsolutePathThatIsCanonicalStaysAsItIs)
{
    EXPECT_EQ(Normalize(normalFile), normalFile);
    EXPECT_EQ(normalFile.compare(1, 2, L":\\"), 0);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(Paths, TheNormalFormHasNoPrefixOfTheOS)
{
    EXPECT_EQ(Normalize(L"\\\\?\\" + normalFile), normalFile);
}

TEST_F(Paths, NormalizingTakesTheLetterCaseOfTheDisk)
{
    EXPECT_EQ(Normalize(normalFolder + L"\\SOME fILE.TXT"), normalFile);
    EXPECT_EQ(Normalize(InUpperCase(normalFile)), normalFile);
}

TEST_F(Paths, NormalizingTakesRelativePartsOut)
{
    folder.MakeFolder(L"Inner");
    EXPECT_EQ(Normalize(normalFolder + L"\\Inner\\..\\Some File.txt"), normalFile);
    EXPECT_EQ(Normalize(normalFolder + L"\\.\\Inner\\.\\..\\.\\Some File.txt"), normalFile);
    EXPECT_EQ(Normalize(normalFolder + L"\\Inner\\.."), normalFolder);
}

TEST_F(Paths, NormalizingMakesARelativePathAbsolute)
{
    folder.MakeFolder(L"Inner");
    const CurrentFolder current(folder / L"Inner");
    EXPECT_EQ(Normalize(L"..\\Some File.txt"), normalFile);
    EXPECT_EQ(Normalize(L"."), normalFolder + L"\\Inner");
}

TEST_F(Paths, NormalizingTakesEitherSeparatorAndRepeatedOnes)
{
    std::wstring slashes = normalFile;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    EXPECT_EQ(Normalize(slashes), normalFile);
    EXPECT_EQ(Normalize(normalFolder + L"\\\\/Some File.txt"), normalFile);
}

TEST_F(Paths, AFolderIsNormalizedToo)
{
    folder.MakeFolder(L"Inner");
    EXPECT_EQ(Normalize(normalFolder + L"\\INNER"), normalFolder + L"\\Inner");
    EXPECT_EQ(Normalize(normalFolder + L"\\inner\\"), normalFolder + L"\\Inner");
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(Paths, AFolderWithLettersOfAnyLanguageIsNormalized)
{
    const std::wstring inner = folder.MakeFolder(L"\u00C4\u0416\u6728 \U0001F600");
    EXPECT_EQ(Normalize(inner + L"\\..\\\u00E4\u0436\u6728 \U0001F600"),
              normalFolder + L"\\\u00C4\u0416\u6728 \U0001F600");
}

TEST_F(Paths, APathThatDoesNotExistIsReturnedUnchangedAndNothingIsLogged)
{
    EXPECT_EQ(Normalize(folder / L"Missing\\..\\also/MISSING.txt"),
              folder / L"Missing\\..\\also/MISSING.txt");
    EXPECT_EQ(Normalize(L"..\\no such file"), L"..\\no such file");
    EXPECT_EQ(Normalize(L""), L"");
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(Paths, APathThatMayNotBeOpenedIsReturnedUnchangedAndNothingIsLogged)
{
    const std::wstring path = normalFolder + L"\\.\\some file.txt";
    FakeImport refuse("CreateFileW",
                      [](decltype(&CreateFileW), LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD,
                         HANDLE) -> HANDLE {
                          SetLastError(ERROR_ACCESS_DENIED);
                          return INVALID_HANDLE_VALUE;
                      });
    EXPECT_EQ(Normalize(path), path);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(Paths, NormalizingOpensForTheNameAloneAndClosesWhatItOpened)
{
    HANDLE opened = nullptr;
    FakeImport create("CreateFileW",
                      [&](decltype(&CreateFileW) real, LPCWSTR path, DWORD access, DWORD sharing,
                          LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                          HANDLE pattern) -> HANDLE {
                          EXPECT_EQ(std::wstring(path), file);
                          EXPECT_EQ(access, 0x20080u);
                          EXPECT_EQ(sharing, 1u);
                          EXPECT_EQ(security, nullptr);
                          EXPECT_EQ(disposition, 3u);
                          EXPECT_EQ(flags, 0x2000000u);
                          EXPECT_EQ(pattern, nullptr);
                          opened = real(path, access, sharing, security, disposition, flags, pattern);
                          return opened;
                      });
    FakeImport ask("GetFinalPathNameByHandleW",
                   [&](decltype(&GetFinalPathNameByHandleW) real, HANDLE handle, LPWSTR buffer, DWORD size,
                       DWORD flags) -> DWORD {
                       EXPECT_EQ(handle, opened);
                       EXPECT_EQ(size, 1024u);
                       EXPECT_EQ(flags, 0u);
                       EXPECT_EQ(std::count(buffer, buffer + size, L'\0'), 1024);
                       return real(handle, buffer, size, flags);
                   });
    EXPECT_EQ(Normalize(file), normalFile);
    ASSERT_NE(opened, nullptr);
    EXPECT_FALSE(IsOpenHandle(opened));
}

TEST_F(Paths, AFailureToGetTheFinalPathIsLoggedAndGivesThePathAsItIs)
{
    HANDLE opened = nullptr;
    FakeImport ask("GetFinalPathNameByHandleW",
                   [&](decltype(&GetFinalPathNameByHandleW), HANDLE handle, LPWSTR, DWORD, DWORD) -> DWORD {
                       opened = handle;
                       SetLastError(ERROR_PATH_NOT_FOUND);
                       return 0;
                   });
    const std::wstring path = folder / L".\\SOME file.txt";
    EXPECT_EQ(Normalize(path), path);
    EXPECT_EQ(log.GetLines(), Lines({LogLine("ERR Cannot normalize path %ls", path.c_str()),
                                     OSErrorLine(ERROR_PATH_NOT_FOUND, "ERR")}));
    EXPECT_FALSE(IsOpenHandle(opened));
}

TEST_F(Paths, AFinalPathLongerThanTheBufferIsAFailure)
{
    const std::wstring path = folder / L".\\SOME file.txt";
    HANDLE opened = nullptr;
    DWORD answer = 0;
    FakeImport ask(
        "GetFinalPathNameByHandleW",
        [&](decltype(&GetFinalPathNameByHandleW), HANDLE handle, LPWSTR buffer, DWORD size, DWORD) -> DWORD {
            opened = handle;
            const std::wstring text = std::wstring(L"\\\\?\\") + std::wstring(size, L'p');
            if (answer < size)
            {
                wcsncpy(buffer, text.c_str(), answer);
            }
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return answer;
        });
    // The room that is needed, and an answer that has nothing but the prefix.
    for (const DWORD length : {1024, 1025, 5000, 4, 1})
    {
        answer = length;
        log.Clear();
        EXPECT_EQ(Normalize(path), path) << length;
        EXPECT_EQ(log.GetLines(), Lines({LogLine("ERR Cannot normalize path %ls", path.c_str()),
                                         OSErrorLine(ERROR_INSUFFICIENT_BUFFER, "ERR")}))
            << length;
        EXPECT_FALSE(IsOpenHandle(opened));
    }
    // The longest and the shortest path that there is room for.
    for (const DWORD length : {1023, 5})
    {
        answer = length;
        log.Clear();
        EXPECT_EQ(Normalize(path), std::wstring(length - 4, L'p'));
        EXPECT_EQ(log.GetLines(), Lines());
        EXPECT_FALSE(IsOpenHandle(opened));
    }
}

TEST(Directories, TheDirectoryIsWhatPrecedesTheLastSeparator)
{
    EXPECT_EQ(DirectoryOf(L"C:\\folder\\file.txt"), L"C:\\folder");
    EXPECT_EQ(DirectoryOf(L"C:/folder/file.txt"), L"C:/folder");
    EXPECT_EQ(DirectoryOf(L"C:\\file.txt"), L"C:");
    EXPECT_EQ(DirectoryOf(L"folder\\file.txt"), L"folder");
    EXPECT_EQ(DirectoryOf(L"\\folder\\file.txt"), L"\\folder");
    EXPECT_EQ(DirectoryOf(L"a\\b"), L"a");
}

TEST(Directories, OfMixedSeparatorsTheLastOneCounts)
{
    EXPECT_EQ(DirectoryOf(L"C:\\one/two\\file"), L"C:\\one/two");
    EXPECT_EQ(DirectoryOf(L"C:\\one\\two/file"), L"C:\\one\\two");
    EXPECT_EQ(DirectoryOf(L"one\\/file"), L"one\\");
    EXPECT_EQ(DirectoryOf(L"one/\\file"), L"one/");
}

TEST(Directories, AFinalSeparatorGivesTheTextBeforeIt)
{
    EXPECT_EQ(DirectoryOf(L"C:\\folder\\"), L"C:\\folder");
    EXPECT_EQ(DirectoryOf(L"C:\\folder/"), L"C:\\folder");
    EXPECT_EQ(DirectoryOf(L"a\\"), L"a");
    EXPECT_EQ(DirectoryOf(L"C:\\folder\\\\"), L"C:\\folder\\");
}

TEST(Directories, APathWithoutASeparatorComesBackWhole)
{
    EXPECT_EQ(DirectoryOf(L"file.txt"), L"file.txt");
    EXPECT_EQ(DirectoryOf(L"C:file"), L"C:file");
}

TEST(Directories, TheFirstCharacterIsNotLookedAt)
{
    EXPECT_EQ(DirectoryOf(L"\\file.txt"), L"\\file.txt");
    EXPECT_EQ(DirectoryOf(L"/file.txt"), L"/file.txt");
    EXPECT_EQ(DirectoryOf(L"\\\\file"), L"\\");
    EXPECT_EQ(DirectoryOf(L"\\\\"), L"\\");
}

TEST(Directories, TextsOfLengthZeroAndOneComeBackAsTheyAre)
{
    EXPECT_EQ(DirectoryOf(L""), L"");
    EXPECT_EQ(DirectoryOf(L"a"), L"a");
    EXPECT_EQ(DirectoryOf(L"\\"), L"\\");
    EXPECT_EQ(DirectoryOf(L"/"), L"/");
}

TEST(Directories, TheLengthAloneDeterminesWhereThePathEnds)
{
    EXPECT_EQ(TextOf(GetDirectory(L"C:\\one\\two\\three", 9)), L"C:\\one");
    EXPECT_EQ(TextOf(GetDirectory(L"C:\\one\\two\\three", 6)), L"C:");
    EXPECT_EQ(TextOf(GetDirectory(L"C:\\one\\two\\three", 2)), L"C:");
    EXPECT_EQ(TextOf(GetDirectory(L"C:\\one\\two\\three", 0)), L"");
}

TEST(Directories, APathAsLongAsItsBufferKeepsItsDirectory)
{
    const std::wstring directory(1021, L'd');
    EXPECT_EQ(DirectoryOf(directory + L"\\f"), directory);
    EXPECT_EQ(DirectoryOf(directory + L"ff"), directory + L"ff");
}

TEST(ExecutablePath, IsThePathOfTheMainExecutable)
{
    wchar_t expected[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(GetModuleHandleW(nullptr), expected, MAX_PATH), 0u);
    EXPECT_EQ(TextOf(GetExecutablePath()), expected);
}

TEST(ExecutablePath, IsAskedForWithAClearedBuffer)
{
    FakeImport ask("GetModuleFileNameW",
                   [](decltype(&GetModuleFileNameW), HMODULE module, LPWSTR buffer, DWORD size) -> DWORD {
                       EXPECT_EQ(module, nullptr);
                       EXPECT_EQ(size, 1024u);
                       EXPECT_EQ(std::count(buffer, buffer + size, L'\0'), 1024);
                       wcscpy(buffer, L"X:\\host.exe");
                       return 11;
                   });
    EXPECT_EQ(TextOf(GetExecutablePath()), L"X:\\host.exe");
}

namespace
{
std::wstring LocalApplicationData()
{
    wchar_t folder[MAX_PATH] = {};
    EXPECT_EQ(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder), S_OK);
    return folder;
}
} // namespace

TEST(LogFilePath, LiesInTheLogsFolderOfTheUsersLocalApplicationData)
{
    EXPECT_EQ(TextOf(GetLogFilePath(L"log_windows_agent_1234.txt")),
              LocalApplicationData() + L"\\Torvane 2\\Logs\\log_windows_agent_1234.txt");
}

TEST(LogFilePath, GivesTheTextOfTheOSBack)
{
    static constexpr GUID expectedFolder = {
        0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};
    void* lent = nullptr;
    uint32_t givenBack = 0;
    FakeImport ask("SHGetKnownFolderPath",
                   [&](decltype(&SHGetKnownFolderPath), REFKNOWNFOLDERID folder, DWORD flags, HANDLE token,
                       PWSTR* path) -> HRESULT {
                       EXPECT_TRUE(IsEqualGUID(folder, expectedFolder));
                       EXPECT_EQ(flags, 0u);
                       EXPECT_EQ(token, nullptr);
                       *path = static_cast<wchar_t*>(CoTaskMemAlloc(16));
                       wcscpy(*path, L"X:\\me");
                       lent = *path;
                       return E_FAIL; // nobody looks at it
                   });
    FakeImport free("CoTaskMemFree", [&](decltype(&CoTaskMemFree) real, LPVOID block) -> void {
        givenBack += block == lent;
        real(block);
    });
    EXPECT_EQ(TextOf(GetLogFilePath(L"name")), L"X:\\me\\Torvane 2\\Logs\\name");
    EXPECT_EQ(givenBack, 1u);
}

TEST(WidenPath, HasTheUnitsAndTheLengthOfTheNarrowOne)
{
    EXPECT_EQ(TextOf(WidenPath("C:\\game\\game.exe")), L"C:\\game\\game.exe");
    EXPECT_EQ(TextOf(WidenPath("")), L"");
}
} // namespace Torvane::Testing
