#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// What a whole run writes to its log: every record of every thread, in its order, and nothing else.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/LogOrder.h"

namespace
{
enum class StartBy
{
    Default,
    DefaultANSI,
    Synchronized,
    SynchronizedANSI,
};

LogSequence operator+(LogSequence first, const LogSequence& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string ThisProcess()
{
    return std::to_string(GetCurrentProcessId());
}

std::string Narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end());
}

LogSequence HostStartup(StartBy startup)
{
    const bool synchronized = startup == StartBy::Synchronized || startup == StartBy::SynchronizedANSI;
    return {
        "DBG Torvane version 2.4.0",
        "DBG Initializing OS internal functions",
        "DBG Initializing system",
        "DBG Initializing hot-reload system",
        "DBG Initializing hot-restart system",
        "INF Starting agent-bridge communication using identifier " + ThisProcess() + " and agent type " +
            (synchronized ? "1" : "0"),
        "DBG Creating communication pipes",
        "DBG Creating synchronization events",
        "DBG Creating heartbeat thread",
        "DBG Creating watchdog thread",
        "DBG Creating sender thread",
        "DBG Creating receiver thread",
    };
}

LogSequence HostShutdown()
{
    return {
        "DBG API TvnShutdown",
        "DBG Shutting down agent-bridge communication",
        "DBG Shutting down hot-restart system",
        "DBG Shutting down hot-reload system",
        "DBG Shutting down system",
        "DBG Shutting down OS internal functions",
        "DBG Shutting down default allocators for memory system",
    };
}

LogSequence HeartbeatLife()
{
    return {"DBG Thread 'Torvane heartbeat' started", "DBG Running heart beat thread",
            "DBG Exiting heart beat thread", "DBG Thread 'Torvane heartbeat' exited with result 0"};
}

LogSequence WatchdogLife()
{
    return {"DBG Thread 'Torvane watchdog' started", "DBG Running watchdog thread",
            "DBG Exiting watchdog thread", "DBG Thread 'Torvane watchdog' exited with result 0"};
}

LogSequence SenderStart()
{
    return {"DBG Thread 'Torvane sender' started", "DBG Running sender thread"};
}

LogSequence SenderSuccess()
{
    return {"INF Sender thread ready", "DBG Exiting sender thread",
            "DBG Thread 'Torvane sender' exited with result 0"};
}

LogSequence SenderFailure(uint32_t result, const std::string& words)
{
    return {"DBG WriteFile() failed.", "DBG Error: *", "ERR " + words,
            "DBG Thread 'Torvane sender' exited with result " + std::to_string(result)};
}

/// The same with a code that isn't one of an ordinary end.
LogSequence LoudSenderFailure(uint32_t result, const std::string& words)
{
    return {"DBG WriteFile() failed.", "DBG Error: *", "ERR Failed to send blob to bridge", "ERR " + words,
            "DBG Thread 'Torvane sender' exited with result " + std::to_string(result)};
}

LogSequence ReceiverSpawn(const std::wstring& folder)
{
    const std::string path = Narrow(folder) + "\\TVN_Agent_Bridge_x64.exe";
    return {
        "DBG Thread 'Torvane receiver' started",
        "INF Spawning bridge process at " + path,
        "DBG Spawning process (" + path + ", " + ThisProcess() + ", " + Narrow(folder) + ", no env, 2)",
    };
}

LogSequence ReceiverConnected()
{
    // One of the files of preferences is beside the Agent that these tests use.
    return {
        "SCS Spawned bridge process",
        "DBG Trying to load global preferences from *\\global_preferences_default.json",
        "DBG Trying to load global preferences from *\\global_preferences.json",
        "DBG Loaded global preferences from *\\global_preferences.json",
        "DBG Trying to load global preferences from *\\global_preferences_override.json",
        "INF Waiting for bridge to connect to pipes, timeout *",
        "SCS Pipes connected",
        "INF Registering agent with bridge",
        "INF Registering process with bridge",
        "DBG Found loader lock at 0x*",
        "SCS Initialization done",
        "DBG Running receiver thread",
    };
}

/// Shutdown ends a read of the pipe.
LogSequence ReceiverEnd(uint32_t result)
{
    return {"DBG ReadFile() failed.", "DBG Error: *",
            "DBG Thread 'Torvane receiver' exited with result " + std::to_string(result)};
}

LogSequence ReceiverNotSpawned(const std::wstring& folder)
{
    return {"DBG Cannot spawn process " + Narrow(folder) + "\\TVN_Agent_Bridge_x64.exe.",
            "DBG Error: 2, 0x2: *", "ERR Failed to spawn bridge process",
            "DBG Thread 'Torvane receiver' exited with result 10"};
}

/// Two threads, the second after the first has ended.
LogSequence PipeWatchers()
{
    const LogSequence one = {"DBG Thread 'Torvane connect named pipe' started",
                             "DBG Thread 'Torvane connect named pipe' exited with result 0"};
    return one + one;
}

class LifecycleLogTest : public HostTest
{
protected:
    void Start(StartBy startup)
    {
        static TvnDefaultAgent defaultAgent;
        static TvnSynchronizedAgent synchronizedAgent;
        switch (startup)
        {
        case StartBy::Default:
            StartDefaultAgent();
            break;
        case StartBy::DefaultANSI:
            PrepareStart();
            Library().TvnStartupDefaultAgentANSI(&defaultAgent, nullptr, nullptr, nullptr);
            break;
        case StartBy::Synchronized:
            StartSynchronizedAgent();
            break;
        case StartBy::SynchronizedANSI:
            PrepareStart();
            Library().TvnStartupSynchronizedAgentANSI(&synchronizedAgent, nullptr, nullptr, nullptr);
            break;
        }
    }

    /// All threads' records so far. The sender's and the receiver's are each one of several alternatives.
    void ExpectLog(const LogSequence& host, const std::vector<LogSequence>& senders,
                   const std::vector<LogSequence>& receivers, const LogSequence& watchers)
    {
        std::string differences;
        for (const LogSequence& sender : senders)
        {
            for (const LogSequence& receiver : receivers)
            {
                const std::string difference = FindLogDifference(
                    WithoutHeapSearch(ReadLog()),
                    {host, SenderStart() + sender, receiver, watchers, HeartbeatLife(), WatchdogLife()});
                if (difference.empty())
                {
                    return;
                }
                differences += difference + "\n";
            }
        }
        ADD_FAILURE() << differences;
    }

    /// The last records of the log are these: a shutdown waits for each thread before it signals the next one.
    void ExpectLastRecords(const LogSequence& expected)
    {
        const std::vector<LogRecord> records = ReadLog();
        ASSERT_LE(expected.size(), records.size());
        const size_t first = records.size() - expected.size();
        for (size_t i = 0; i < expected.size(); ++i)
        {
            EXPECT_TRUE(IsLogged(records[first + i], expected[i]))
                << expected[i] << " was to come, and not " << records[first + i].message;
        }
    }

    void RunConnected(StartBy startup)
    {
        UseDefaultBridge();
        Start(startup);
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
        EXPECT_TRUE(WaitForLog("Sender thread ready"));
        Shutdown();
        ExpectLog(HostStartup(startup) + LogSequence{"DBG API TvnOnConnection"} + HostShutdown(),
                  {SenderSuccess()}, {ReceiverSpawn(AgentFolder()) + ReceiverConnected() + ReceiverEnd(8)},
                  PipeWatchers());
        ExpectLastRecords({
            "DBG API TvnShutdown",
            "DBG Shutting down agent-bridge communication",
            "DBG ReadFile() failed.",
            "DBG Error: *",
            "DBG Thread 'Torvane receiver' exited with result 8",
            "DBG Exiting sender thread",
            "DBG Thread 'Torvane sender' exited with result 0",
            "DBG Exiting watchdog thread",
            "DBG Thread 'Torvane watchdog' exited with result 0",
            "DBG Exiting heart beat thread",
            "DBG Thread 'Torvane heartbeat' exited with result 0",
            "DBG Shutting down hot-restart system",
            "DBG Shutting down hot-reload system",
            "DBG Shutting down system",
            "DBG Shutting down OS internal functions",
            "DBG Shutting down default allocators for memory system",
        });
        ExpectThreadsStartedInOrder();
    }

    void RunWithoutABridge(StartBy startup)
    {
        RemoveBridge();
        Start(startup);
        EXPECT_EQ(ConnectionFailed, WaitForConnection());
        EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 10"));
        Shutdown();
        ExpectLog(HostStartup(startup) + LogSequence{"DBG API TvnOnConnection"} + HostShutdown(),
                  SendersThatNeverConnected(), {ReceiverSpawn(OwnFolder()) + ReceiverNotSpawned(OwnFolder())},
                  {});
        ExpectLastRecords({
            "ERR Failed to send Version blob",
            "DBG Thread 'Torvane sender' exited with result 3",
            "DBG Exiting watchdog thread",
            "DBG Thread 'Torvane watchdog' exited with result 0",
            "DBG Exiting heart beat thread",
            "DBG Thread 'Torvane heartbeat' exited with result 0",
            "DBG Shutting down hot-restart system",
            "DBG Shutting down hot-reload system",
            "DBG Shutting down system",
            "DBG Shutting down OS internal functions",
            "DBG Shutting down default allocators for memory system",
        });
    }

    /// Shutdown comes while the receiver still starts, waits for it, and then takes everything down.
    void RunShutDownAtOnce(StartBy startup)
    {
        UseDefaultBridge();
        ExpectNoBridge(); // it may or may not find its pipes
        Start(startup);
        Shutdown();
        ExpectLog(HostStartup(startup) + HostShutdown(),
                  {SenderSuccess(), SenderFailure(3, "Failed to send Version blob"),
                   SenderFailure(4, "Failed to send RegisterProjectPreferences blob"),
                   SenderFailure(5, "Failed to send RegisterAgent blob"),
                   SenderFailure(6, "Failed to send RegisterProcess blob")},
                  {ReceiverSpawn(AgentFolder()) + ReceiverConnected() + ReceiverEnd(8),
                   ReceiverSpawn(AgentFolder()) + ReceiverConnected() + ReceiverEnd(9)},
                  PipeWatchers());
    }

    void RunShutDownAtOnceWithoutABridge(StartBy startup)
    {
        RemoveBridge();
        Start(startup);
        Shutdown();
        ExpectLog(HostStartup(startup) + HostShutdown(), SendersThatNeverConnected(),
                  {ReceiverSpawn(OwnFolder()) + ReceiverNotSpawned(OwnFolder())}, {});
    }

    static std::vector<LogSequence> SendersThatNeverConnected()
    {
        return {SenderFailure(3, "Failed to send Version blob"),
                LoudSenderFailure(3, "Failed to send Version blob")};
    }

    /// The folder that `RemoveBridge` and `UseOwnAgentFolder` make.
    std::wstring OwnFolder()
    {
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(static_cast<HMODULE>(Library().Module()), path, MAX_PATH);
        const std::wstring text = path;
        return text.substr(0, text.find_last_of(L'\\'));
    }

private:
    void ExpectThreadsStartedInOrder()
    {
        ExpectLogOrder({"Creating heartbeat thread", "Thread 'Torvane heartbeat' started"});
        ExpectLogOrder({"Creating watchdog thread", "Thread 'Torvane watchdog' started"});
        ExpectLogOrder({"Creating sender thread", "Thread 'Torvane sender' started"});
        ExpectLogOrder({"Creating receiver thread", "Thread 'Torvane receiver' started"});
        ExpectLogOrder({"Registering process with bridge", "Sender thread ready"});
    }
};
} // namespace

#define LIFECYCLE_LOG(Name) HOST_TEST_OF(LifecycleLogTest, LifecycleLog, Name)

LIFECYCLE_LOG(OfAConnectedDefaultAgent)
{
    RunConnected(StartBy::Default);
}

LIFECYCLE_LOG(OfAConnectedDefaultAgentStartedByItsNarrowForm)
{
    RunConnected(StartBy::DefaultANSI);
}

LIFECYCLE_LOG(OfAConnectedSynchronizedAgent)
{
    RunConnected(StartBy::Synchronized);
}

LIFECYCLE_LOG(OfAConnectedSynchronizedAgentStartedByItsNarrowForm)
{
    RunConnected(StartBy::SynchronizedANSI);
}

LIFECYCLE_LOG(OfADefaultAgentWithoutABridge)
{
    RunWithoutABridge(StartBy::Default);
}

LIFECYCLE_LOG(OfADefaultAgentWithoutABridgeStartedByItsNarrowForm)
{
    RunWithoutABridge(StartBy::DefaultANSI);
}

LIFECYCLE_LOG(OfASynchronizedAgentWithoutABridge)
{
    RunWithoutABridge(StartBy::Synchronized);
}

LIFECYCLE_LOG(OfASynchronizedAgentWithoutABridgeStartedByItsNarrowForm)
{
    RunWithoutABridge(StartBy::SynchronizedANSI);
}

LIFECYCLE_LOG(OfADefaultAgentThatIsShutDownAtOnce)
{
    RunShutDownAtOnce(StartBy::Default);
}

LIFECYCLE_LOG(OfADefaultAgentStartedByItsNarrowFormThatIsShutDownAtOnce)
{
    RunShutDownAtOnce(StartBy::DefaultANSI);
}

LIFECYCLE_LOG(OfASynchronizedAgentThatIsShutDownAtOnce)
{
    RunShutDownAtOnce(StartBy::Synchronized);
}

LIFECYCLE_LOG(OfASynchronizedAgentStartedByItsNarrowFormThatIsShutDownAtOnce)
{
    RunShutDownAtOnce(StartBy::SynchronizedANSI);
}

LIFECYCLE_LOG(OfADefaultAgentThatIsShutDownAtOnceWithoutABridge)
{
    RunShutDownAtOnceWithoutABridge(StartBy::Default);
}

LIFECYCLE_LOG(OfASynchronizedAgentThatIsShutDownAtOnceWithoutABridge)
{
    RunShutDownAtOnceWithoutABridge(StartBy::Synchronized);
}

LIFECYCLE_LOG(OfABridgeThatNeverConnects)
{
    UseOwnAgentFolder();
    StartDefaultAgent();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 11"));
    Signal("failed");
    EXPECT_TRUE(WaitForBridge());
    Shutdown();
    ExpectLog(HostStartup(StartBy::Default) + LogSequence{"DBG API TvnOnConnection"} + HostShutdown(),
              SendersThatNeverConnected(),
              {ReceiverSpawn(OwnFolder()) +
               LogSequence{
                   "SCS Spawned bridge process",
                   "DBG Trying to load global preferences from *\\global_preferences_default.json",
                   "DBG Trying to load global preferences from *\\global_preferences.json",
                   "DBG Trying to load global preferences from *\\global_preferences_override.json",
                   "INF Waiting for bridge to connect to pipes, timeout 2000ms",
                   "DBG ConnectNamedPipe failed.",
                   "DBG Error: 995, 0x3E3: *",
                   "ERR Failed to wait for sender pipe",
                   "DBG ConnectNamedPipe failed.",
                   "DBG Error: 995, 0x3E3: *",
                   "ERR Failed to wait for receiver pipe",
                   "DBG Thread 'Torvane receiver' exited with result 11",
               }},
              PipeWatchers());
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, LifecycleLog, OfABridgeThatNeverConnects)
{
    EXPECT_TRUE(Await("failed"));
}

#endif
