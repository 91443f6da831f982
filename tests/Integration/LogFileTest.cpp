#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The Agent's log file: its place, its form, its life, and an Agent that has none.

#if TORVANE_HOST_HALF

#include "tests/Support/DebugOutput.h"
#include "tests/Support/Files.h"

#include <algorithm>
#include <ctype.h>
#include <string.h>

#include <objbase.h>
#include <shlobj.h>

namespace
{
/// Where the user's local application data is, found by other means than the Agent's.
std::wstring LogFolderFromEnvironment()
{
    wchar_t folder[MAX_PATH] = {};
    GetEnvironmentVariableW(L"LOCALAPPDATA", folder, MAX_PATH);
    return folder + std::wstring(L"\\Torvane 2\\Logs");
}

/// \return the error code of opening the file for that access, whatever others may do with it.
DWORD TryOpen(const std::wstring& path, DWORD access)
{
    const HANDLE file =
        CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return GetLastError();
    }
    CloseHandle(file);
    return ERROR_SUCCESS;
}

/// What `GetFolder` returns for the folder of the user's data.
std::wstring replacedFolder;
bool askedForLocalApplicationData;

/// `SHGetKnownFolderPath` for an Agent whose user keeps the data in `replacedFolder`.
HRESULT WINAPI GetFolder(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, wchar_t** path)
{
    const GUID localApplicationData = {
        0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};
    askedForLocalApplicationData =
        memcmp(&id, &localApplicationData, sizeof(id)) == 0 && flags == 0 && token == nullptr;
    const size_t size = (replacedFolder.size() + 1) * sizeof(wchar_t);
    *path = static_cast<wchar_t*>(CoTaskMemAlloc(size));
    memcpy(*path, replacedFolder.c_str(), size);
    return S_OK;
}

/// `WriteFile` for an Agent whose disk is full, when it is. Pipes take what they are given.
volatile bool diskIsFull;

BOOL WINAPI WriteUnlessFull(HANDLE file, const void* bytes, DWORD size, DWORD* written,
                            OVERLAPPED* overlapped)
{
    if (!diskIsFull || GetFileType(file) != FILE_TYPE_DISK)
    {
        return WriteFile(file, bytes, size, written, overlapped);
    }
    SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

HRESULT WINAPI RefuseFolder(REFKNOWNFOLDERID, DWORD, HANDLE, wchar_t** path)
{
    *path = nullptr;
    return E_FAIL;
}

class LogFileTest : public HostTest
{
protected:
    /// The call that it ends with waits for the Bridge: a host that shuts down before that can cut it off within the exchange
    /// of versions, which the Bridge reports as a failure.
    void RunConnected()
    {
        UseDefaultBridge();
        const TvnDefaultAgent& agent = ConnectDefaultAgent();
        agent.TvnEnableModule(ProgramPath().c_str(), ExactlyTheseModules, nullptr, nullptr);
    }

    /// A whole run of an Agent whose log file couldn't be created.
    void ExpectRunWithoutAFile()
    {
        const DebugOutput output;
        RunConnected();
        Library().TvnLogMessageANSI("a call");
        Shutdown();
        size_t successes = 0;
        for (const std::string& text : output.Texts())
        {
            successes += text.find("Torvane Success] Pipes connected") != std::string::npos;
        }
        EXPECT_EQ(1u, successes) << "The debugger still gets its part.";
    }
};
} // namespace

#define LOG_FILE(Name) HOST_TEST_OF(LogFileTest, LogFile, Name)

LOG_FILE(IsInTheUsersLocalApplicationDataUnderTheProcessId)
{
    const std::wstring path = LogFolderFromEnvironment() + L"\\log_windows_agent_" +
                              std::to_wstring(GetCurrentProcessId()) + L".txt";
    DeleteFileW(path.c_str()); // a process of earlier can have had this id
    EXPECT_FALSE(Exists(path));
    RunConnected();
    EXPECT_TRUE(Exists(path));
}

LOG_FILE(CostsItsRecordsAloneWhileNothingCanBeWritten)
{
    ReplaceImport("WriteFile", &WriteUnlessFull);
    const DebugOutput output;
    RunConnected();
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    const std::string before = ReadAgentLogText(GetCurrentProcessId());
    diskIsFull = true;
    for (int i = 0; i < 1000; ++i)
    {
        Library().TvnSetBoolPreferences(0, true);
    }
    EXPECT_EQ(before, ReadAgentLogText(GetCurrentProcessId()));
    diskIsFull = false;
    Library().TvnSetIntPreferences(0, 1);
    const std::string after = ReadAgentLogText(GetCurrentProcessId());
    const std::string record = after.substr(before.size());
    EXPECT_EQ(" | API TvnSetIntPreferences", record.substr(record.rfind(" | ")));
    EXPECT_EQ(0u, record.rfind("\r\n")) << "Just the one record.";
    Shutdown();
    size_t reports = 0;
    for (const std::string& text : output.Texts())
    {
        reports += text.find("Cannot write to file.") != std::string::npos;
    }
    EXPECT_EQ(0u, reports) << "Debug lines never reach the debugger.";
    EXPECT_EQ(0u, CountInLog("Cannot write to file."));
}

LOG_FILE(IsDoneWithoutIfTheOSDoesNotKnowTheFolder)
{
    Library();
    ReplaceImport("SHGetKnownFolderPath", &RefuseFolder);
    ExpectRunWithoutAFile();
}

LOG_FILE(HasARecordPerLineInColumns)
{
    RunConnected();
    Shutdown();
    const std::string text = ReadAgentLogText(GetCurrentProcessId());
    ASSERT_LT(2u, text.size());
    EXPECT_EQ("\r\n", text.substr(0, 2)) << "Each record begins with a line break.";
    EXPECT_EQ("for memory system", text.substr(text.size() - 17)) << "None ends with one.";
    std::string previous;
    size_t records = 0;
    for (size_t begin = 2; begin < text.size();)
    {
        const size_t end = std::min(text.find("\r\n", begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        begin = end + 2;
        if (line.empty())
        {
            continue; // after the OS's text of an error, which has a line break of its own
        }
        ++records;
        ASSERT_LT(9u + 3 + 3 + 3 + 43 + 3, line.size()) << line;
        EXPECT_EQ('.', line[6]) << line;
        EXPECT_TRUE(isdigit(line[5]) && isdigit(line[7]) && isdigit(line[8])) << line;
        EXPECT_EQ(" | ", line.substr(9, 3)) << line;
        EXPECT_TRUE(isupper(line[12]) && isupper(line[13]) && isupper(line[14])) << line;
        EXPECT_EQ(" | ", line.substr(15, 3)) << line;
        EXPECT_EQ(')', line[60]) << line;
        EXPECT_EQ(" | ", line.substr(61, 3)) << line;
        EXPECT_LE(previous.substr(0, 9), line.substr(0, 9)) << "Time doesn't run backwards in a short run.";
        previous = line;
    }
    EXPECT_EQ(ReadLog().size(), records);
}

LOG_FILE(ReplacesAnOldOneOfTheSameName)
{
    const std::string old(1 << 20, 'x');
    ASSERT_TRUE(WriteWholeFile(AgentLogPath(GetCurrentProcessId()), old.data(), old.size()));
    RunConnected();
    Shutdown();
    const std::string text = ReadAgentLogText(GetCurrentProcessId());
    EXPECT_EQ(std::string::npos, text.find("xxx"));
    EXPECT_EQ(std::string("Torvane version ") + apiVersion, ReadLog().front().message);
}

LOG_FILE(CanBeReadButNotWrittenByOthersUntilShutdown)
{
    RunConnected();
    const std::wstring path = AgentLogPath(GetCurrentProcessId());
    EXPECT_EQ(DWORD(ERROR_SUCCESS), TryOpen(path, GENERIC_READ));
    EXPECT_EQ(DWORD(ERROR_SHARING_VIOLATION), TryOpen(path, GENERIC_WRITE));
    Shutdown();
    EXPECT_EQ(DWORD(ERROR_SUCCESS), TryOpen(path, GENERIC_WRITE)) << "It is closed.";
}

LOG_FILE(IsMissingWhenItsFolderIs)
{
    replacedFolder = TemporaryFilesFolder() + L"TorvaneTestData_" + std::to_wstring(GetCurrentProcessId());
    ASSERT_TRUE(CreateDirectoryW(replacedFolder.c_str(), nullptr));
    const ReplacedImport replaced(Library().Module(), "SHGetKnownFolderPath", &GetFolder);
    ExpectRunWithoutAFile();
    EXPECT_TRUE(askedForLocalApplicationData);
    EXPECT_TRUE(RemoveDirectoryW(replacedFolder.c_str())) << "The Agent makes nothing there.";
    EXPECT_TRUE(ReadAgentLogText(GetCurrentProcessId()).empty());
}

LOG_FILE(IsMissingWhenItCannotBeCreated)
{
    const std::wstring path = AgentLogPath(GetCurrentProcessId());
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    ExpectRunWithoutAFile();
    EXPECT_TRUE(RemoveDirectoryW(path.c_str()));
}

#endif
