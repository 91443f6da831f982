#include "tests/Support/Integration/IntegrationTest.h"
#if TORVANE_HOST_HALF

#include "tests/Support/Files.h"
#include "tests/Support/Integration/RestartHost.h"
#include "tests/Support/TestThread.h"
#endif

#include <stdlib.h>
#include <string.h>

#include <windows.h>

#include <winternl.h>

// Restarts: the requests, what the Bridge is handed, and how the process ends. Each process that ends is a second one
// of its test; the first sees what has run in it, and its exit code.

#if TORVANE_HOST_HALF

namespace
{
constexpr int32_t exitCode = 7;

/// As the OS does if the buffer is too small for the current directory.
DWORD WINAPI ReportLongFolder(DWORD capacity, LPWSTR)
{
    return capacity + 1;
}

constexpr auto noSuchBehaviour = static_cast<TvnRestartBehaviour>(4);

// ---- What a process leaves when it ends ----

std::wstring MarksPath()
{
    wchar_t path[MAX_PATH] = {};
    GetEnvironmentVariableW(L"TORVANE_TEST_MARKS", path, MAX_PATH);
    return path;
}

void LeaveMark(const char* text)
{
    const HANDLE file = CreateFileW(MarksPath().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_ALWAYS, 0, nullptr);
    DWORD count = 0;
    WriteFile(file, text, static_cast<DWORD>(strlen(text)), &count, nullptr);
    CloseHandle(file);
}

struct Static
{
    bool watched = false;
    ~Static()
    {
        if (watched)
        {
            LeaveMark("static destructor\n");
        }
    }
};
Static staticObject;

class RestartTest : public RestartHost
{
protected:
    /// From now on the end of this process leaves marks.
    void WatchTheEnd()
    {
        staticObject.watched = true;
        atexit([] { LeaveMark("exit handler\n"); });
        ASSERT_NE(nullptr, LoadLibraryW((ExecutableFolder() + L"\\images\\DetachMark.dll").c_str()));
    }

    /// Runs the test again and reads what the end of that process has left.
    std::string RunAgainAndReadMarks(DWORD& processExitCode)
    {
        const std::wstring path =
            TemporaryFilesFolder() + L"TorvaneMarks_" + std::to_wstring(GetCurrentProcessId());
        SetEnvironmentVariableW(L"TORVANE_TEST_MARKS", path.c_str());
        DeleteFileW(path.c_str());
        processExitCode = RunAgain();
        const std::string marks = ReadWholeFile(path);
        DeleteFileW(path.c_str());
        return marks;
    }

    /// The second process: restarts as soon as the Broker wants it. Returns only with a behaviour that has no meaning.
    void RestartWhenWanted(TvnRestartBehaviour behaviour)
    {
        WatchTheEnd();
        TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
        EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsRestart(); }));
        agent.TvnRestart(behaviour, exitCode);
    }

    void ExpectEnd(TvnRestartBehaviour behaviour, const char* expectedMarks)
    {
        if (IsRerun())
        {
            RestartWhenWanted(behaviour);
            FAIL() << "The process continues.";
        }
        DWORD processExitCode = 0;
        EXPECT_EQ(expectedMarks, RunAgainAndReadMarks(processExitCode));
        EXPECT_EQ(static_cast<DWORD>(exitCode), processExitCode);
    }

    /// What the OS reports of this process, for the Bridge half to compare.
    void PublishProcess()
    {
        PublishText("executable", ProgramPath());
        PublishText("command line", GetCommandLineW());
        std::wstring folder(1024, L'\0');
        folder.resize(GetCurrentDirectoryW(1024, folder.data()));
        PublishText("folder", folder);
        const auto* parameters =
            reinterpret_cast<const uint8_t*>(NtCurrentTeb()->ProcessEnvironmentBlock->ProcessParameters);
        constexpr size_t environmentOffset = 0x48; // in the parameters of a 32-bit process
        Publish("environment", *reinterpret_cast<void* const*>(parameters + environmentOffset));
    }

    void RestartOnRequestAndReturn()
    {
        TvnSynchronizedAgent& agent = StartSynchronizedAgent();
        PublishProcess();
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
        EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsRestart(); }));
        agent.TvnRestart(noSuchBehaviour, exitCode);
        ExpectLogOrder({"API TvnRestart", "Processing Blob::ExitProcessForHotRestart"});
        ExpectNoErrorsInLog();
    }
};
} // namespace

#define RESTART_HOST(Name) HOST_TEST_OF(RestartTest, Restart, Name)

// ---- Requests ----

RESTART_HOST(IsScheduledForThisProcessOrForAll)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnScheduleRestart(ThisProcessOnly);
    agent.TvnScheduleRestart(AllProcesses);
    agent.TvnScheduleRestart(static_cast<TvnRestartScope>(7));
    EXPECT_EQ(3u, CountInLog("API TvnScheduleRestart"));
    EXPECT_TRUE(Await("scheduled"));
}

RESTART_HOST(IsWantedOncePerRequest)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_FALSE(agent.TvnWantsRestart());
    Signal("not wanted");
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsRestart(); }));
    EXPECT_FALSE(agent.TvnWantsRestart());

    // Two requests before the next poll are one.
    Signal("wanted");
    EXPECT_TRUE(Await("requested twice"));
    EXPECT_TRUE(agent.TvnWantsRestart());
    EXPECT_FALSE(agent.TvnWantsRestart());
    EXPECT_EQ(0u, CountInLog("API TvnRestart"));
    ExpectNoErrorsInLog();
}

RESTART_HOST(RequestThatNobodyPollsChangesNothing)
{
    ConnectSynchronizedAgent();
    EXPECT_TRUE(Await("requested"));
    EXPECT_EQ(0u, CountInLog("API TvnRestart"));
    EXPECT_EQ(0u, CountInLog("Thread 'Torvane restart' started"));
}

// ---- What is handed over ----

RESTART_HOST(HandsOverTheProcessAsTheOSReportsIt)
{
    RestartOnRequestAndReturn();
}

RESTART_HOST(HandsOverSpacesAndCharactersOfTheWorld)
{
    if (IsRerun())
    {
        RestartOnRequestAndReturn();
        return;
    }
    Rerun rerun;
    rerun.currentFolder = TemporaryFilesFolder() + L"Torvane \x00E4\x6F22 \xD83D\xDE00";
    CreateDirectoryW(rerun.currentFolder.c_str(), nullptr);
    rerun.arguments = L"--none \"two words\"  \x00E4\x00F6\x00FC \x6F22\x5B57 \xD83D\xDE00 \"\" end";
    SetEnvironmentVariableW(L"TORVANE_TEST_\x6F22", L"\xD83D\xDE00 two words");
    EXPECT_EQ(0u, RunAgain(rerun));
    EXPECT_TRUE(RemoveDirectoryW(rerun.currentFolder.c_str()));
}

RESTART_HOST(HandsOverAnEnvironmentOf30Kilobytes)
{
    if (IsRerun())
    {
        RestartOnRequestAndReturn();
        return;
    }
    for (uint32_t i = 0; i < 15; ++i)
    {
        SetEnvironmentVariableW((L"TORVANE_TEST_LONG_" + std::to_wstring(i)).c_str(),
                                std::wstring(1000, static_cast<wchar_t>(L'a' + i)).c_str());
    }
    EXPECT_EQ(0u, RunAgain());
}

RESTART_HOST(HandsOverNoFolderThatIsTooLongForItsField)
{
    ReplaceImport("GetCurrentDirectoryW", ReportLongFolder);
    RestartOnRequestAndReturn();
}

// ---- The ends of a process ----

RESTART_HOST(EndsByExitProcess)
{
    ExpectEnd(TvnRestartExitProcess, "library detach\n");
}

RESTART_HOST(EndsWithCleanup)
{
    ExpectEnd(TvnRestartExitWithCleanup, "exit handler\nstatic destructor\nlibrary detach\n");
}

RESTART_HOST(EndsWithoutCleanup)
{
    ExpectEnd(TvnRestartExitWithoutCleanup, "library detach\n");
}

RESTART_HOST(EndsByTerminateProcess)
{
    ExpectEnd(TvnRestartTerminateProcess, "");
}

RESTART_HOST(OfADefaultAgentTerminatesTheProcessOnAThreadOfItsOwn)
{
    if (IsRerun())
    {
        WatchTheEnd();
        ConnectDefaultAgent();
        Signal("watched");
        WaitUntil([] { return false; });
        FAIL() << "The process continues.";
    }
    DWORD processExitCode = 1;
    EXPECT_EQ("", RunAgainAndReadMarks(processExitCode));
    EXPECT_EQ(0u, processExitCode);
    const std::vector<std::string> expected = {"Thread 'Torvane restart' started", "API TvnRestart",
                                               "Processing Blob::ExitProcessForHotRestart"};
    std::vector<std::string> found;
    for (const LogRecord& record : ReadLogOfRerun())
    {
        for (const std::string& message : expected)
        {
            if (record.message == message)
            {
                found.push_back(message);
            }
        }
    }
    EXPECT_EQ(expected, found);
}

RESTART_HOST(WithoutAMeaningfulBehaviourReturnsAfterTheAnswer)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    {
        TestThread caller([&] { agent.TvnRestart(noSuchBehaviour, exitCode); });
        EXPECT_TRUE(Await("asked"));
        EXPECT_FALSE(caller.WaitForEnd(100)) << "It returned before the answer.";
        Signal("still waiting");
    }
    // A second restart is as good as the first.
    agent.TvnRestart(noSuchBehaviour, exitCode);
    EXPECT_EQ(2u, CountInLog("Processing Blob::ExitProcessForHotRestart"));
}

RESTART_HOST(WaitsForeverWhenTheLinkIsLost)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    {
        TestThread caller([&] { agent.TvnRestart(noSuchBehaviour, exitCode); });
        const uint64_t event = AwaitNumber("event");
        EXPECT_TRUE(WaitForBridge());
        EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 8"));
        EXPECT_FALSE(caller.WaitForEnd(500));
        SetEvent(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(event)));
    }
}

#else

namespace
{
class RestartBridge : public ConnectedBridgeTest
{
protected:
    std::wstring Text(const InlineWideText& text)
    {
        const auto* units = reinterpret_cast<const wchar_t*>(text.text);
        EXPECT_EQ(text.length, wcsnlen(units, 1024));
        for (uint32_t i = text.length; i < 1024; ++i)
        {
            EXPECT_EQ(0, text.text[i]) << "after the text, unit " << i;
        }
        return std::wstring(units, text.length);
    }

    void ExpectProcess(const Received<RestartBlob>& restart)
    {
        EXPECT_NE(0u, restart->event);
        EXPECT_EQ(host.Id(), restart->processId);
        EXPECT_EQ(AwaitText("executable"), Text(restart->executablePath));
        EXPECT_EQ(AwaitText("folder"), Text(restart->currentDirectory));
        const std::wstring commandLine = AwaitText("command line");
        EXPECT_EQ(commandLine, restart.Utf16String(restart->commandLine));

        // The environment up to the end of its region.
        const AddressSlot environment = AwaitNumber("environment");
        const std::vector<uint8_t> handedOver = restart.Data(restart->environment, restart->environmentSize);
        ASSERT_NE(0u, restart->environmentSize);
        ASSERT_EQ(restart->environmentSize, handedOver.size());
        EXPECT_EQ(0u, (environment + handedOver.size()) % 4096);
        EXPECT_EQ(handedOver, host.Read(environment, static_cast<uint32_t>(handedOver.size())));

        // One block, in the order of the fields, and nothing after it.
        EXPECT_EQ(sizeof(RestartBlob) + (commandLine.size() + 1) * sizeof(wchar_t) + handedOver.size(),
                  restart.PayloadSize());
    }

    /// Takes a whole restart's part of the Bridge.
    void Restart(bool compare)
    {
        ASSERT_TRUE(SendRequestRestart(link));
        const auto restart = WaitFor<RestartBlob>();
        ASSERT_TRUE(restart);
        if (compare)
        {
            ExpectProcess(restart);
        }
        ASSERT_TRUE(SendExitProcessForHotRestart(link, restart->event));
    }
};
} // namespace

#define RESTART_BRIDGE(Name) BRIDGE_SCENARIO_OF(RestartBridge, Restart, Name)

RESTART_BRIDGE(IsScheduledForThisProcessOrForAll)
{
    const uint32_t expected[] = {host.Id(), 0, 0};
    for (const uint32_t processId : expected)
    {
        const auto schedule = WaitFor<ScheduleRestartBlob>();
        ASSERT_TRUE(schedule);
        EXPECT_EQ(sizeof(ScheduleRestartBlob), schedule.PayloadSize());
        EXPECT_EQ(processId, schedule->processId);
    }
    Signal("scheduled");
}

RESTART_BRIDGE(IsWantedOncePerRequest)
{
    ASSERT_TRUE(Await("not wanted"));
    ASSERT_TRUE(SendRequestRestart(link));
    ASSERT_TRUE(Await("wanted"));
    ASSERT_TRUE(SendRequestRestart(link));
    ASSERT_TRUE(SendRequestRestart(link));
    ASSERT_TRUE(Fence());
    Signal("requested twice");
}

RESTART_BRIDGE(RequestThatNobodyPollsChangesNothing)
{
    ASSERT_TRUE(SendRequestRestart(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
}

RESTART_BRIDGE(HandsOverTheProcessAsTheOSReportsIt)
{
    Restart(true);
}

RESTART_BRIDGE(HandsOverSpacesAndCharactersOfTheWorld)
{
    Restart(true);
}

RESTART_BRIDGE(HandsOverAnEnvironmentOf30Kilobytes)
{
    ASSERT_TRUE(SendRequestRestart(link));
    const auto restart = WaitFor<RestartBlob>();
    ASSERT_TRUE(restart);
    EXPECT_LT(30000u, restart->environmentSize);
    ExpectProcess(restart);
    ASSERT_TRUE(SendExitProcessForHotRestart(link, restart->event));
}

RESTART_BRIDGE(HandsOverNoFolderThatIsTooLongForItsField)
{
    ASSERT_TRUE(SendRequestRestart(link));
    const auto restart = WaitFor<RestartBlob>();
    ASSERT_TRUE(restart);
    EXPECT_EQ(0u, restart->currentDirectory.length);
    EXPECT_EQ(L"", Text(restart->currentDirectory));
    ASSERT_TRUE(SendExitProcessForHotRestart(link, restart->event));
}

RESTART_BRIDGE(EndsByExitProcess)
{
    Restart(false);
}

RESTART_BRIDGE(EndsWithCleanup)
{
    Restart(false);
}

RESTART_BRIDGE(EndsWithoutCleanup)
{
    Restart(false);
}

RESTART_BRIDGE(EndsByTerminateProcess)
{
    Restart(false);
}

RESTART_BRIDGE(OfADefaultAgentTerminatesTheProcessOnAThreadOfItsOwn)
{
    ASSERT_TRUE(Await("watched"));
    Restart(false);
}

RESTART_BRIDGE(WithoutAMeaningfulBehaviourReturnsAfterTheAnswer)
{
    const auto first = WaitFor<RestartBlob>();
    ASSERT_TRUE(first);
    Signal("asked");
    ASSERT_TRUE(Await("still waiting"));
    ASSERT_TRUE(SendExitProcessForHotRestart(link, first->event));
    const auto second = WaitFor<RestartBlob>();
    ASSERT_TRUE(second);
    ASSERT_TRUE(SendExitProcessForHotRestart(link, second->event));
}

RESTART_BRIDGE(WaitsForeverWhenTheLinkIsLost)
{
    const auto restart = WaitFor<RestartBlob>();
    ASSERT_TRUE(restart);
    Publish("event", restart->event);
    ExitBeforeAgent();
}

#endif
