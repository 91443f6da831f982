#include "Shared/Process/Windows/Process.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/TestThread.h"

#include <algorithm>
#include <stdlib.h>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr wchar_t handleVariable[] = L"TORVANE_TEST_CHILD_HANDLE";
constexpr char spawnFailure[] = "Cannot spawn process %ls.";

/// What a child finds.
struct ChildReport
{
    HANDLE startupHandles[3]; ///< the standard handles that it was given
    DWORD startupFlags;
    HWND console;
    BOOL hasHandle; ///< whether a handle with the value of one of ours is open
    wchar_t directory[300];
    wchar_t commandLine[300];
};

/// Writes a report to the file that it is given.
const ChildRole reporter(L"spawned reporter", [](const wchar_t* path) {
    static ChildReport report = {};
    STARTUPINFOW startup = {};
    GetStartupInfoW(&startup);
    report.startupFlags = startup.dwFlags;
    report.startupHandles[0] = startup.hStdInput;
    report.startupHandles[1] = startup.hStdOutput;
    report.startupHandles[2] = startup.hStdError;
    report.console = GetConsoleWindow();
    wchar_t handle[16] = {};
    GetEnvironmentVariableW(handleVariable, handle, 16);
    DWORD flags = 0;
    report.hasHandle = GetHandleInformation(reinterpret_cast<HANDLE>(wcstoul(handle, nullptr, 16)), &flags);
    GetCurrentDirectoryW(300, report.directory);
    wcsncpy(report.commandLine, GetCommandLineW(), 299);

    const HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    DWORD count = 0;
    WriteFile(file, &report, sizeof(report), &count, nullptr);
    CloseHandle(file);
});

/// Lives until the event of the given name is signalled, and ends with 5 then.
const ChildRole waiter(L"spawned waiter", [](const wchar_t* name) {
    const HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, name);
    WaitForSingleObject(event, testTimeout);
    ExitProcess(5);
});

std::wstring GetProgram()
{
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return program;
}

std::string SpawnLine(const std::wstring& path, const wchar_t* commandLine, const wchar_t* directory)
{
    return LogLine("DBG Spawning process (%ls, %ls, %ls, no env, 2)", path.c_str(), commandLine, directory);
}

class Spawning : public testing::Test
{
protected:
    /// Spawns a child that reports, and waits for its end.
    ChildReport Report(const wchar_t* directory, const wchar_t* commandLine)
    {
        const std::wstring path = folder / L"report";
        reporter.Announce(path.c_str());
        const Result<SpawnedProcess> result = Spawn(program.c_str(), directory, commandLine);
        ChildRole::Withdraw();
        ChildReport report = {};
        EXPECT_EQ(result.error, nullptr);
        if (result.error != nullptr)
        {
            return report;
        }
        SpawnedProcess process = result.payload;
        EXPECT_EQ(WaitForSingleObject(process.information.hProcess, testTimeout),
                  static_cast<DWORD>(WAIT_OBJECT_0));
        ReleaseSpawnedProcess(process);
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        DWORD count = 0;
        EXPECT_TRUE(ReadFile(file, &report, sizeof(report), &count, nullptr));
        EXPECT_EQ(count, sizeof(report));
        CloseHandle(file);
        return report;
    }

    void ExpectFailure(const Result<SpawnedProcess>& result, DWORD code, const std::wstring& path,
                       const std::string& spawnLine)
    {
        ASSERT_NE(result.error, nullptr);
        EXPECT_STREQ(result.error, spawnFailure);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(log.GetLines(), Lines({spawnLine, LogLine("DBG Cannot spawn process %ls.", path.c_str()),
                                         OSErrorLine(code)}));
    }

    std::wstring program = GetProgram();
    RecordedLog log;
    TemporaryFolder folder;
};
} // namespace

TEST_F(Spawning, TheChildRunsWithItsCommandLineInItsWorkingDirectory)
{
    const std::wstring directory = folder.MakeFolder(L"working \u00E4");
    const ChildReport report = Report(directory.c_str(), L"\"any name\" one \u6728 two");
    EXPECT_STREQ(report.commandLine, L"\"any name\" one \u6728 two");
    EXPECT_EQ(std::wstring(report.directory), directory);
    EXPECT_EQ(log.GetLines(), Lines({SpawnLine(program, L"\"any name\" one \u6728 two", directory.c_str())}));
}

TEST_F(Spawning, WithoutAWorkingDirectoryTheChildRunsInOurs)
{
    wchar_t ours[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, ours);
    const ChildReport report = Report(nullptr, L"name");
    EXPECT_STREQ(report.directory, ours);
    EXPECT_EQ(log.GetLines(), Lines({SpawnLine(program, L"name", L"no working dir")}));
}

TEST_F(Spawning, WithoutACommandLineTheChildRunsToo)
{
    const ChildReport report = Report(folder.GetPath().c_str(), nullptr);
    EXPECT_EQ(std::wstring(report.directory), folder.GetPath());
    EXPECT_EQ(report.commandLine, L"\"" + program + L"\"");
    EXPECT_EQ(log.GetLines(), Lines({SpawnLine(program, L"no cmdline", folder.GetPath().c_str())}));
}

TEST_F(Spawning, TheChildHasNoStandardHandlesAndNoConsoleWindow)
{
    const ChildReport report = Report(nullptr, nullptr);
    for (const HANDLE handle : report.startupHandles)
    {
        EXPECT_TRUE(handle == nullptr || handle == INVALID_HANDLE_VALUE) << handle;
    }
    EXPECT_EQ(report.startupFlags, 0x100u);
    EXPECT_EQ(report.console, nullptr);
}

TEST_F(Spawning, TheChildInheritsNoHandle)
{
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    std::vector<HANDLE> events(
        2000); // so many that the child has no handle of the last one's value by itself
    for (HANDLE& event : events)
    {
        event = CreateEventW(&inheritable, TRUE, FALSE, nullptr);
    }
    wchar_t last[16] = {};
    _ultow(reinterpret_cast<uintptr_t>(events.back()), last, 16);
    SetEnvironmentVariableW(handleVariable, last);
    EXPECT_FALSE(Report(nullptr, nullptr).hasHandle);
    SetEnvironmentVariableW(handleVariable, nullptr);
    for (const HANDLE event : events)
    {
        CloseHandle(event);
    }
}

TEST_F(Spawning, ARecordHoldsWhatTheOSGaveAndNoDrain)
{
    FakeImport create(
        "CreateProcessW",
        [](decltype(&CreateProcessW), LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
           DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION information) -> BOOL {
            *information = {reinterpret_cast<HANDLE>(0x1234), reinterpret_cast<HANDLE>(0x5678), 9, 10};
            return TRUE;
        });
    const Result<SpawnedProcess> result = Spawn(L"X:\\child.exe", nullptr, nullptr);
    ASSERT_EQ(result.error, nullptr);
    EXPECT_EQ(result.payload.outputPipe, nullptr);
    EXPECT_EQ(result.payload.information.hProcess, reinterpret_cast<HANDLE>(0x1234));
    EXPECT_EQ(result.payload.information.hThread, reinterpret_cast<HANDLE>(0x5678));
    EXPECT_EQ(result.payload.information.dwProcessId, 9u);
    EXPECT_EQ(result.payload.information.dwThreadId, 10u);
    EXPECT_EQ(result.payload.drainThread, INVALID_HANDLE_VALUE);
    EXPECT_EQ(result.payload.output, nullptr);
    EXPECT_EQ(result.payload.outputBlockSize, 0u);
    EXPECT_EQ(result.payload.flags, 2u);
    EXPECT_EQ(log.GetLines(), Lines({SpawnLine(L"X:\\child.exe", L"no cmdline", L"no working dir")}));
}

namespace
{
/// Checks what is the same for every spawn.
void ExpectUsualArguments(LPCWSTR path, LPSECURITY_ATTRIBUTES processSecurity,
                          LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherited, DWORD flags,
                          LPVOID environment, const STARTUPINFOW& startup)
{
    EXPECT_STREQ(path, L"X:\\child.exe");
    EXPECT_EQ(processSecurity, nullptr);
    EXPECT_EQ(threadSecurity, nullptr);
    EXPECT_FALSE(inherited);
    EXPECT_EQ(flags, 0x8000400u);
    EXPECT_EQ(environment, nullptr);
    STARTUPINFOW expected = {};
    expected.cb = 68;
    expected.dwFlags = 0x100;
    EXPECT_EQ(memcmp(&startup, &expected, sizeof(expected)), 0);
}
} // namespace

TEST_F(Spawning, ANullCommandLineIsAClearedBufferAndANullWorkingDirectoryIsNull)
{
    FakeImport create("CreateProcessW",
                      [](decltype(&CreateProcessW), LPCWSTR path, LPWSTR commandLine,
                         LPSECURITY_ATTRIBUTES processSecurity, LPSECURITY_ATTRIBUTES threadSecurity,
                         BOOL inherited, DWORD flags, LPVOID environment, LPCWSTR directory,
                         LPSTARTUPINFOW startup, LPPROCESS_INFORMATION) -> BOOL {
                          ExpectUsualArguments(path, processSecurity, threadSecurity, inherited, flags,
                                               environment, *startup);
                          EXPECT_EQ(directory, nullptr);
                          EXPECT_EQ(std::count(commandLine, commandLine + 32768, L'\0'), 32768);
                          return TRUE;
                      });
    EXPECT_EQ(Spawn(L"X:\\child.exe", nullptr, nullptr).error, nullptr);
}

TEST_F(Spawning, ACommandLineIsCopiedToABufferThatTheOSMayWriteIn)
{
    static const wchar_t given[] = L"child one two";
    FakeImport create("CreateProcessW",
                      [](decltype(&CreateProcessW), LPCWSTR path, LPWSTR commandLine,
                         LPSECURITY_ATTRIBUTES processSecurity, LPSECURITY_ATTRIBUTES threadSecurity,
                         BOOL inherited, DWORD flags, LPVOID environment, LPCWSTR directory,
                         LPSTARTUPINFOW startup, LPPROCESS_INFORMATION) -> BOOL {
                          ExpectUsualArguments(path, processSecurity, threadSecurity, inherited, flags,
                                               environment, *startup);
                          EXPECT_STREQ(directory, L"X:\\folder");
                          EXPECT_NE(commandLine, given);
                          EXPECT_STREQ(commandLine, given);
                          EXPECT_EQ(std::count(commandLine, commandLine + 32768, L'\0'), 32768 - 13);
                          commandLine[0] = L'!';
                          return TRUE;
                      });
    EXPECT_EQ(Spawn(L"X:\\child.exe", L"X:\\folder", given).error, nullptr);
    EXPECT_EQ(log.GetLines(), Lines({SpawnLine(L"X:\\child.exe", given, L"X:\\folder")}));
}

TEST_F(Spawning, TheLongestCommandLineArrivesWhole)
{
    const std::wstring longest(32767, L'c');
    FakeImport create("CreateProcessW",
                      [](decltype(&CreateProcessW), LPCWSTR, LPWSTR commandLine, LPSECURITY_ATTRIBUTES,
                         LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW,
                         LPPROCESS_INFORMATION) -> BOOL {
                          EXPECT_EQ(std::count(commandLine, commandLine + 32767, L'c'), 32767);
                          EXPECT_EQ(commandLine[32767], L'\0');
                          return TRUE;
                      });
    EXPECT_EQ(Spawn(L"X:\\child.exe", nullptr, longest.c_str()).error, nullptr);
}

TEST_F(Spawning, AMissingExecutableFailsWithTheCodeOfTheOS)
{
    const std::wstring path = folder / L"missing \u00E4.exe";
    ExpectFailure(Spawn(path.c_str(), nullptr, nullptr), ERROR_FILE_NOT_FOUND, path,
                  SpawnLine(path, L"no cmdline", L"no working dir"));
}

TEST_F(Spawning, AFileThatIsNoExecutableFailsWithTheCodeOfTheOS)
{
    const std::wstring path = folder.MakeFile(L"text.exe", "this is no program, but long enough to be one\n");
    ExpectFailure(Spawn(path.c_str(), nullptr, L"name"), ERROR_BAD_EXE_FORMAT, path,
                  SpawnLine(path, L"name", L"no working dir"));
}

TEST_F(Spawning, AReleasedChildLivesOn)
{
    const std::wstring name = L"TVN_UnitTest_Child_" + std::to_wstring(GetCurrentProcessId());
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
    waiter.Announce(name.c_str());
    const Result<SpawnedProcess> result = Spawn(program.c_str(), nullptr, nullptr);
    ChildRole::Withdraw();
    ASSERT_EQ(result.error, nullptr);
    SpawnedProcess process = result.payload;
    const PROCESS_INFORMATION information = process.information;
    const HANDLE child = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, information.dwProcessId);
    ASSERT_NE(child, nullptr);

    ReleaseSpawnedProcess(process);
    EXPECT_EQ(process.information.hProcess, nullptr);
    EXPECT_EQ(process.information.hThread, nullptr);
    EXPECT_FALSE(IsOpenHandle(information.hProcess));
    EXPECT_FALSE(IsOpenHandle(information.hThread));
    EXPECT_EQ(WaitForSingleObject(child, quietPeriod), static_cast<DWORD>(WAIT_TIMEOUT));

    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(child, testTimeout), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(child, &code));
    EXPECT_EQ(code, 5u);
    CloseHandle(child);
    CloseHandle(event);
}
} // namespace Torvane::Testing
