#include "tests/Support/Integration/HostTest.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Integration/LogLevels.h"
#include "tests/Support/Integration/TimeLimit.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t defaultTimeLimit = 60;       // seconds
constexpr uint32_t timeoutAfterFailure = 3000;  // milliseconds
constexpr uint32_t childLimit = 15 * 60 * 1000; // milliseconds; the child's own limit comes first

std::string CurrentTestName()
{
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test.test_suite_name()) + "." + test.name();
}
} // namespace

HostTest::HostTest()
    : TestHalf(GetCurrentProcessId())
{
}

// ---- The life of a test ----

void HostTest::TestBody()
{
    if (testing::UnitTest::GetInstance()->test_to_run_count() > 1)
    {
        RunInChild();
    }
    else
    {
        RunInThisProcess();
    }
}

void HostTest::RunInChild()
{
    const std::string name = CurrentTestName();
    fflush(stdout);
    const PROCESS_INFORMATION child = StartChild(L"--gtest_filter=" + std::wstring(name.begin(), name.end()));
    ASSERT_NE(nullptr, child.hProcess);
    EXPECT_EQ(0u, WaitForChild(child, childLimit)) << "in the child process of this test";
}

void HostTest::RunInThisProcess()
{
    scenario = CurrentTestName();
    agentFolder = AgentFolder();
    MakeAgentLogFolder();
    DeleteFileW(AgentLogPath(GetCurrentProcessId()).c_str()); // of an earlier process with this one's id
    SetTimeLimit(defaultTimeLimit);

    HostHalf();

    const uint32_t limit = HasFailure() ? timeoutAfterFailure : testTimeout;
    if (started && !leftRunning)
    {
        // A Bridge half that is still checking things needs the Agent; one that stays waits for its end.
        if (bridgeExpected)
        {
            WaitUntil([this] { return HasBridgeGone() || channel.State() == BridgeState::Staying; }, limit);
        }
        Shutdown();
    }
    if (bridgeExpected)
    {
        EXPECT_TRUE(WaitForBridge(limit)) << "The Bridge half hasn't come to its end.";
        ReportBridge();
    }
    EXPECT_EQ(std::vector<std::string>{}, FindUnknownLines(ReadLog())) << "Not at their level, or unknown.";
    if (HasFailure())
    {
        const std::string log = ReadAgentLogText(GetCurrentProcessId());
        printf("The Agent's log:%s\n", log.empty() ? " none" : log.c_str());
    }
    StopTimeLimit();
}

void HostTest::ReportBridge()
{
    for (const std::string& failure : channel.Failures())
    {
        ADD_FAILURE() << "In the Bridge half: " << failure;
    }
    EXPECT_NE(BridgeState::NotStarted, channel.State()) << "The Bridge half has never started.";
    if (bridgeProcess == nullptr)
    {
        return;
    }
    DWORD exitCode = 0;
    WaitForSingleObject(bridgeProcess, testTimeout);
    GetExitCodeProcess(bridgeProcess, &exitCode);
    EXPECT_EQ(bridgeExitCode, exitCode) << "The Bridge's process has ended with this exit code.";
    CloseHandle(bridgeProcess);
    bridgeProcess = nullptr;
}

/// Whether nothing more is to come from the Bridge half.
bool HostTest::HasBridgeGone()
{
    if (channel.State() == BridgeState::Finished)
    {
        return true;
    }
    if (bridgeProcess == nullptr && channel.BridgeProcessId() != 0)
    {
        bridgeProcess =
            OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, channel.BridgeProcessId());
    }
    return bridgeProcess != nullptr && WaitForSingleObject(bridgeProcess, 0) == WAIT_OBJECT_0;
}

bool HostTest::WaitForBridge(uint32_t milliseconds)
{
    return WaitUntil([this] { return HasBridgeGone(); }, milliseconds);
}

bool HostTest::HasOtherHalfEnded()
{
    return HasBridgeGone() || !channel.Failures().empty();
}

// ---- Before the Agent is started ----

void HostTest::UseScenario(const std::string& name)
{
    scenario = name;
}

void HostTest::UseDefaultBridge()
{
    UseScenario("DefaultBridge");
}

void HostTest::RemoveBridge()
{
    agentFolder = CopyAgentFolder(false);
    ExpectNoBridge();
}

void HostTest::UseOwnAgentFolder()
{
    agentFolder = CopyAgentFolder(true);
}

void HostTest::ExpectNoBridge()
{
    bridgeExpected = false;
}

void HostTest::ExpectBridgeExitCode(uint32_t code)
{
    bridgeExitCode = code;
}

void HostTest::SetTimeLimit(uint32_t seconds)
{
    timeLimit = seconds;
    StartTimeLimit(seconds, CurrentTestName());
}

const AgentLibrary& HostTest::Library()
{
    if (library.Module() == nullptr)
    {
        const std::string error = library.Load(agentFolder + L"\\" + agentFileName);
        if (!error.empty())
        {
            // The test can't continue without its subject.
            fprintf(stderr, "TVN_Agent_x86.dll in %ls: %s\n", agentFolder.c_str(), error.c_str());
            fflush(stderr);
            TerminateProcess(GetCurrentProcess(), 1);
        }
    }
    return library;
}

void HostTest::PrepareStart()
{
    Publish(timeLimitName, uint64_t{timeLimit});
    SetEnvironmentVariableA("TORVANE_BRIDGE_SCENARIO", scenario.c_str());
    if (bridgeExpected)
    {
        const std::wstring bridge = agentFolder + L"\\" + bridgeFileName;
        EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(bridge.c_str()))
            << "The tests' Bridge is missing: build the preset windows-x64 first.";
    }
    Library();
    MarkStarted();
}

// ---- The Agent's life ----

TvnDefaultAgent& HostTest::StartDefaultAgent(const wchar_t* projectPreferencesPath,
                                             const TvnProjectPreferences* projectPreferences,
                                             const TvnLogFilter* logFilter)
{
    PrepareStart();
    library.TvnStartupDefaultAgent(&defaultAgent, logFilter, projectPreferencesPath, projectPreferences);
    return defaultAgent;
}

TvnSynchronizedAgent& HostTest::StartSynchronizedAgent(const wchar_t* projectPreferencesPath,
                                                       const TvnProjectPreferences* projectPreferences,
                                                       const TvnLogFilter* logFilter)
{
    PrepareStart();
    library.TvnStartupSynchronizedAgent(&synchronizedAgent, logFilter, projectPreferencesPath,
                                        projectPreferences);
    return synchronizedAgent;
}

TvnDefaultAgent& HostTest::ConnectDefaultAgent(const wchar_t* projectPreferencesPath,
                                               const TvnProjectPreferences* projectPreferences,
                                               const TvnLogFilter* logFilter)
{
    TvnDefaultAgent& agent = StartDefaultAgent(projectPreferencesPath, projectPreferences, logFilter);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    return agent;
}

TvnSynchronizedAgent& HostTest::ConnectSynchronizedAgent(const wchar_t* projectPreferencesPath,
                                                         const TvnProjectPreferences* projectPreferences,
                                                         const TvnLogFilter* logFilter)
{
    TvnSynchronizedAgent& agent =
        StartSynchronizedAgent(projectPreferencesPath, projectPreferences, logFilter);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    return agent;
}

void HostTest::MarkStarted()
{
    started = true;
}

void TVN_CALL HostTest::TakeStatus(void* context, TvnConnectionStatus status)
{
    Connection& connection = *static_cast<Connection*>(context);
    InterlockedExchange(&connection.status, status);
    InterlockedExchange(&connection.known, 1);
}

TvnConnectionStatus HostTest::WaitForConnection()
{
    if (!connectionAsked)
    {
        connectionAsked = true;
        library.TvnOnConnection(&connection, &TakeStatus);
    }
    EXPECT_TRUE(WaitUntil([this] { return connection.known != 0; })) << "No connection status has come.";
    return static_cast<TvnConnectionStatus>(connection.status);
}

bool HostTest::IsSenderReadyOrGone() const
{
    const std::vector<LogRecord> records = ReadLog();
    return std::any_of(records.begin(), records.end(), [](const LogRecord& record) {
        return record.message == "Sender thread ready" ||
               record.message.find("Thread 'Torvane sender' exited") == 0;
    });
}

void HostTest::Shutdown()
{
    // The host is notified of the connection when the Bridge's version has been received. The Agent's own may not have
    // been sent yet, and for a Bridge it is a failure if none is received.
    constexpr uint32_t senderLimit = 10000; // milliseconds; there are tests whose sender never gets that far
    if (bridgeExpected && CountInLog("Pipes connected") != 0)
    {
        WaitUntil([this] { return IsSenderReadyOrGone(); }, senderLimit);
    }
    library.TvnShutdown();
    started = false;
}

void HostTest::LeaveAgentRunning()
{
    leftRunning = true;
}

// ---- The Agent's log ----

std::vector<LogRecord> HostTest::ReadLog() const
{
    return ParseAgentLog(ReadAgentLogText(GetCurrentProcessId()));
}

size_t HostTest::CountInLog(const std::string& message) const
{
    size_t count = 0;
    for (const LogRecord& record : ReadLog())
    {
        count += record.message == message;
    }
    return count;
}

bool HostTest::WaitForLog(const std::string& message, uint32_t milliseconds)
{
    WaitUntil([&] { return !channel.Failures().empty() || CountInLog(message) != 0; }, milliseconds);
    return CountInLog(message) != 0;
}

void HostTest::ExpectLogOrder(const std::vector<std::string>& messages) const
{
    const std::vector<LogRecord> records = ReadLog();
    size_t next = 0;
    for (const std::string& message : messages)
    {
        size_t found = next;
        while (found < records.size() && records[found].message != message)
        {
            ++found;
        }
        if (found == records.size())
        {
            ADD_FAILURE() << "Not in the log, or not in this place of the order: " << message;
            return;
        }
        next = found + 1;
    }
}

void HostTest::ExpectNoErrorsInLog() const
{
    for (const LogRecord& record : WithoutHeapSearch(ReadLog()))
    {
        EXPECT_TRUE(record.tag != "ERR" && record.tag != "PNC") << record.message;
    }
}
} // namespace Torvane::Testing
