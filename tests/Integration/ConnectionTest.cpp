#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// How the connection comes out, and how a host learns of it.

#if TORVANE_HOST_HALF

namespace
{
struct Report
{
    int count = 0;
    TvnConnectionStatus status = ConnectionFailed;
    DWORD threadId = 0;
};

void TVN_CALL TakeReport(void* context, TvnConnectionStatus status)
{
    Report& report = *static_cast<Report*>(context);
    ++report.count;
    report.status = status;
    report.threadId = GetCurrentThreadId();
}

class TimedHost : public HostTest
{
protected:
    /// From the record of a message until now, by the log's own clock: a further record shows it.
    double SecondsSince(const std::string& message)
    {
        Library().TvnLogMessageANSI("");
        const std::vector<LogRecord> records = ReadLog();
        double begin = 0;
        double now = 0;
        for (const LogRecord& record : records)
        {
            begin = record.message == message ? record.time : begin;
            now = record.message == "API TvnLogMessageANSI" ? record.time : now;
        }
        return now - begin;
    }
};
} // namespace

HOST_TEST(Connection, SucceedsWithTheDefaultBridge)
{
    UseDefaultBridge();
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    ExpectNoErrorsInLog();
}

HOST_TEST(Connection, GoesThroughItsStepsInOrder)
{
    UseDefaultBridge();
    ConnectDefaultAgent();
    const std::wstring bridge = AgentFolder() + L"\\" + bridgeFileName;
    const std::string path(bridge.begin(), bridge.end());
    const std::string identifier = std::to_string(GetCurrentProcessId());
    ExpectLogOrder({
        std::string("Torvane version ") + apiVersion,
        "Initializing OS internal functions",
        "Initializing system",
        "Initializing hot-reload system",
        "Initializing hot-restart system",
        "Starting agent-bridge communication using identifier " + identifier + " and agent type 0",
        "Creating communication pipes",
        "Creating synchronization events",
        "Creating heartbeat thread",
        "Creating watchdog thread",
        "Creating sender thread",
        "Creating receiver thread",
        "Spawning bridge process at " + path,
        "Spawned bridge process",
        "Pipes connected",
        "Registering agent with bridge",
        "Registering process with bridge",
        "Initialization done",
        "Running receiver thread",
    });
}

HOST_TEST(Connection, ReportsToACallbackThatComesBeforeTheOutcome)
{
    Report report;
    StartDefaultAgent();
    Library().TvnOnConnection(&report, &TakeReport);
    EXPECT_EQ(0, report.count) << "The Bridge waits for us, so nothing can be known yet.";
    Signal("registered");
    EXPECT_TRUE(WaitUntil([&] { return report.count != 0; }));
    EXPECT_EQ(ConnectionSucceeded, report.status);
    EXPECT_NE(GetCurrentThreadId(), report.threadId);
}

HOST_TEST(Connection, ReportsAtOnceToEachCallbackThatComesAfterTheOutcome)
{
    UseDefaultBridge();
    ConnectDefaultAgent();
    Report first;
    Report second;
    Library().TvnOnConnection(&first, &TakeReport);
    Library().TvnOnConnection(&second, &TakeReport);
    for (const Report& report : {first, second})
    {
        EXPECT_EQ(1, report.count);
        EXPECT_EQ(ConnectionSucceeded, report.status);
        EXPECT_EQ(GetCurrentThreadId(), report.threadId);
    }
}

HOST_TEST(Connection, FailsWithoutABridge)
{
    RemoveBridge();
    StartDefaultAgent();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    EXPECT_TRUE(WaitForLog("Failed to spawn bridge process"));
    EXPECT_EQ(0u, CountInLog("Spawned bridge process"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 10"));
    Shutdown();
    EXPECT_EQ(1u, CountInLog("Failed to send Version blob"));
}

HOST_TEST_OF(TimedHost, Connection, FailsWithABridgeThatNeverConnects)
{
    UseOwnAgentFolder();
    StartDefaultAgent();
    EXPECT_TRUE(WaitForLog("Waiting for bridge to connect to pipes, timeout 2000ms"));
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    const double reported = SecondsSince("Waiting for bridge to connect to pipes, timeout 2000ms");
    EXPECT_GE(reported, 2 * 2.0 - 0.1) << "Both pipes are waited for, one after the other.";
    ExpectLogOrder({
        "Spawned bridge process",
        "Waiting for bridge to connect to pipes, timeout 2000ms",
        "Failed to wait for sender pipe",
        "Failed to wait for receiver pipe",
    });
    EXPECT_EQ(0u, CountInLog("Pipes connected"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 11"));
    Signal("failed");
}

HOST_TEST(Connection, FailsWhenOnlyOnePipeIsConnected)
{
    UseOwnAgentFolder();
    StartDefaultAgent();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    EXPECT_EQ(0u, CountInLog("Failed to wait for sender pipe"));
    EXPECT_EQ(1u, CountInLog("Failed to wait for receiver pipe"));
    Signal("failed");
}

HOST_TEST(Connection, RefusesAFirstBlobThatIsNoVersion)
{
    StartDefaultAgent();
    EXPECT_EQ(UnexpectedVersionBlob, WaitForConnection());
    EXPECT_TRUE(WaitForLog("Received unexpected Version blob type"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 18"));
}

HOST_TEST(Connection, RefusesABridgeOfAnotherVersion)
{
    StartDefaultAgent();
    EXPECT_EQ(VersionMismatch, WaitForConnection());
    EXPECT_TRUE(WaitForLog(
        "Version mismatch detected: Broker running API version 2.4.1, expected API version 2.4.0"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 19"));
    Library().TvnLogMessageANSI("still sending");
}

HOST_TEST(Connection, FailsWithoutAnErrorLineWhenTheBridgeGoesBeforeItsVersion)
{
    StartDefaultAgent();
    EXPECT_TRUE(WaitForLog("Pipes connected"));
    Signal("connected");
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 8"));
    EXPECT_EQ(0u, CountInLog("Failed to receive blob header from bridge"));
}

HOST_TEST(Connection, KeepsItsStatusWhenTheBridgeGoesLater)
{
    ConnectDefaultAgent();
    Signal("connected");
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 8"));
    EXPECT_EQ(0u, CountInLog("Failed to receive blob header from bridge"));
    Report report;
    Library().TvnOnConnection(&report, &TakeReport);
    EXPECT_EQ(ConnectionSucceeded, report.status);
}

HOST_TEST(Connection, EndsWithABlobThatIsNotForTheAgent)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Unknown blob type 7"));
    EXPECT_TRUE(WaitForLog("Exiting receiver thread"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 0"));
}

HOST_TEST(Connection, ShutdownRightAfterStartupWaitsForTheAttemptAndSucceeds)
{
    UseDefaultBridge();
    ExpectNoBridge(); // it can find its pipes closed already
    StartDefaultAgent();
    Shutdown();
    ExpectLogOrder({"API TvnShutdown", "Shutting down agent-bridge communication",
                    "Shutting down hot-restart system", "Shutting down hot-reload system",
                    "Shutting down system", "Shutting down OS internal functions",
                    "Shutting down default allocators for memory system"});
    EXPECT_EQ(1u, CountInLog("Initialization done"));
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, Connection, ReportsToACallbackThatComesBeforeTheOutcome)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(Await("registered"));
    ASSERT_TRUE(link.ExchangeVersion(testTimeout));
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, Connection, FailsWithABridgeThatNeverConnects)
{
    EXPECT_TRUE(Await("failed"));
}

BRIDGE_SCENARIO_OF(BridgeTest, Connection, FailsWhenOnlyOnePipeIsConnected)
{
    EXPECT_TRUE(link.ConnectAgentPipe(testTimeout));
    EXPECT_TRUE(Await("failed"));
    EXPECT_FALSE(link.Receive(0)) << "Nothing is sent on a connection that has failed.";
}

BRIDGE_SCENARIO_OF(BridgeTest, Connection, RefusesAFirstBlobThatIsNoVersion)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(SendEchoRequest(link, 1));
    EXPECT_TRUE(WaitFor<RegisterProcessBlob>()) << "The Agent registers all the same.";
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, Connection, RefusesABridgeOfAnotherVersion)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(SendVersion(link, "2.4.1"));
    const auto log = link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow);
    ASSERT_TRUE(log);
    EXPECT_EQ("still sending", log.AnsiString(log->text));
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, Connection, FailsWithoutAnErrorLineWhenTheBridgeGoesBeforeItsVersion)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(Await("connected"));
    link.Close();
}

BRIDGE_SCENARIO_OF(BridgeTest, Connection, KeepsItsStatusWhenTheBridgeGoesLater)
{
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(Await("connected"));
    link.Close();
}

BRIDGE_SCENARIO(Connection, EndsWithABlobThatIsNotForTheAgent)
{
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::RegisterProjectPreferences, nullptr, 0)));
}

#endif
