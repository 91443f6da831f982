#pragma once

/// \file
/// The host half of an integration test; for the thread that runs the test unless stated otherwise.

#include "tests/Support/FakeImport.h"
#include "tests/Support/Integration/AgentLibrary.h"
#include "tests/Support/Integration/AgentLog.h"
#include "tests/Support/Integration/TestHalf.h"

#include <memory>
#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// Base of all host halves. Waits have the limit `testTimeout` unless stated otherwise, and end early when the
/// Bridge half has failed or ended. At the end of each test all lines of the Agent's log have to be at their levels
/// (`LogLevels.h`), so what looks for a line looks for its message alone.
class HostTest : public TestHalf
{
protected:
    HostTest();

    // Before the Agent is started

    /// Another test's Bridge half, as "Suite.Name", in place of the one of this test's name.
    void UseScenario(const std::string& name);

    /// The default Bridge, which executes what it receives and checks nothing, in place of a Bridge half.
    void UseDefaultBridge();

    /// Loads the Agent from a folder that no Bridge is in. Implies `ExpectNoBridge`.
    void RemoveBridge();

    /// Loads the Agent from a folder of this process's own, from where no preferences of a Broker are found: the
    /// connection time-outs are the Agent's defaults.
    void UseOwnAgentFolder();

    /// There is no Bridge half to be waited for.
    void ExpectNoBridge();

    /// The Bridge's process ends with this exit code, instead of 0.
    void ExpectBridgeExitCode(uint32_t code);

    /// Instead of one minute.
    void SetTimeLimit(uint32_t seconds);

    /// The library, loaded but not started: call exports here, `Library().TvnCheckVersion(...)`.
    const AgentLibrary& Library();

    // The Agent's life

    /// Start the Agent; the arguments are those of the startup functions.
    TvnDefaultAgent& StartDefaultAgent(const wchar_t* projectPreferencesPath = nullptr,
                                       const TvnProjectPreferences* projectPreferences = nullptr,
                                       const TvnLogFilter* logFilter = nullptr);
    TvnSynchronizedAgent& StartSynchronizedAgent(const wchar_t* projectPreferencesPath = nullptr,
                                                 const TvnProjectPreferences* projectPreferences = nullptr,
                                                 const TvnLogFilter* logFilter = nullptr);

    /// The same, and expect the connection to succeed.
    TvnDefaultAgent& ConnectDefaultAgent(const wchar_t* projectPreferencesPath = nullptr,
                                         const TvnProjectPreferences* projectPreferences = nullptr,
                                         const TvnLogFilter* logFilter = nullptr);
    TvnSynchronizedAgent& ConnectSynchronizedAgent(const wchar_t* projectPreferencesPath = nullptr,
                                                   const TvnProjectPreferences* projectPreferences = nullptr,
                                                   const TvnLogFilter* logFilter = nullptr);

    /// For a test that calls a startup function itself: all that comes before that call. The end of the test shuts
    /// the Agent down then.
    void PrepareStart();

    /// The second half of `PrepareStart` alone: the end of the test shuts the Agent down.
    void MarkStarted();

    /// Registers a connection callback, at the first call, and waits until it has been called. \return the status
    /// that it got, or -1 with a failure of the test.
    TvnConnectionStatus WaitForConnection();

    /// `TvnShutdown`, now and not at the end of the test.
    void Shutdown();

    /// The end of the test doesn't shut the Agent down; for tests where that wouldn't return.
    void LeaveAgentRunning();

    /// From now on the Agent calls another function in place of one that it imports. The library has to be loaded, and
    /// no other thread may call the function now. \return the function of the OS.
    template<typename Function>
    Function* ReplaceImport(const char* name, Function* function)
    {
        replacedImports.push_back(std::make_unique<ReplacedImport>(Library().Module(), name, function));
        return reinterpret_cast<Function*>(replacedImports.back()->GetOriginal());
    }

    /// Waits until the Bridge half has returned. \return false after the limit. Its failures are reported at the
    /// end of the test.
    bool WaitForBridge(uint32_t milliseconds = testTimeout);

    // The Agent's log

    std::vector<LogRecord> ReadLog() const;

    /// How many records have exactly this message so far.
    size_t CountInLog(const std::string& message) const;

    /// Waits until the log has a record with exactly this message.
    bool WaitForLog(const std::string& message, uint32_t milliseconds = testTimeout);

    /// Fails the test unless the log has records with these messages in this order; others may be between.
    void ExpectLogOrder(const std::vector<std::string>& messages) const;

    /// Fails the test if the log has a record of tag "ERR" or "PNC", `WithoutHeapSearch`.
    void ExpectNoErrorsInLog() const;

    virtual void HostHalf() = 0;

private:
    void TestBody() final;
    void RunInThisProcess();
    void RunInChild();
    bool IsSenderReadyOrGone() const;
    bool HasBridgeGone();
    bool HasOtherHalfEnded() override;
    void ReportBridge();

    AgentLibrary library;
    std::vector<std::unique_ptr<ReplacedImport>> replacedImports;
    std::wstring agentFolder;
    std::string scenario;
    void* bridgeProcess = nullptr;
    uint32_t bridgeExitCode = 0;
    uint32_t timeLimit = 0; // seconds
    bool bridgeExpected = true;
    bool started = false;
    bool leftRunning = false;
    TvnDefaultAgent defaultAgent = {};
    TvnSynchronizedAgent synchronizedAgent = {};

    struct Connection
    {
        volatile long known = 0;
        volatile long status = -1;
    };
    static void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status);
    Connection connection;
    bool connectionAsked = false;
};
} // namespace Torvane::Testing
