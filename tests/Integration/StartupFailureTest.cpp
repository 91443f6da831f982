#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// An OS that refuses something during startup: what is logged, and how the Agent continues.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/StartupGate.h"
#include "tests/Support/TestThread.h"

namespace
{
/// The functions below refuse a call that this counts down to 0.
volatile long callsUntilRefusal;

bool IsRefused()
{
    if (InterlockedDecrement(&callsUntilRefusal) != 0)
    {
        return false;
    }
    SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return true;
}

HANDLE WINAPI RefuseEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name)
{
    return IsRefused() ? nullptr : CreateEventW(security, manual, set, name);
}

HANDLE WINAPI RefuseSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG maximum, const wchar_t* name)
{
    return IsRefused() ? nullptr : CreateSemaphoreW(security, count, maximum, name);
}

HANDLE WINAPI RefuseMutex(SECURITY_ATTRIBUTES* security, BOOL owned, const wchar_t* name)
{
    return IsRefused() ? nullptr : CreateMutexW(security, owned, name);
}

using ThreadFunction = unsigned(__stdcall*)(void*);
using BeginThread = uintptr_t(__cdecl*)(void*, unsigned, ThreadFunction, void*, unsigned, unsigned*);
BeginThread beginThread;

uintptr_t __cdecl RefuseThread(void* security, unsigned stackSize, ThreadFunction function, void* argument,
                               unsigned flags, unsigned* id)
{
    return IsRefused() ? 0 : beginThread(security, stackSize, function, argument, flags, id);
}

HANDLE WINAPI RefuseToOpenThread(DWORD, BOOL, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

/// Nobody can read the executable.
HANDLE WINAPI RefuseExecutable(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                               DWORD disposition, DWORD flags, HANDLE model)
{
    const std::wstring text = path;
    if (text.size() > 4 && text.substr(text.size() - 4) == L".exe")
    {
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileW(path, access, share, security, disposition, flags, model);
}

LONG WINAPI RefuseVersion(OSVERSIONINFOW*)
{
    return static_cast<LONG>(0xC0000123);
}

FARPROC WINAPI GetRefusingProcAddress(HMODULE module, const char* name)
{
    return std::string(name) == "RtlGetVersion" ? reinterpret_cast<FARPROC>(&RefuseVersion)
                                                : GetProcAddress(module, name);
}

class StartupFailureTest : public LinkTest
{
protected:
    /// Starts an Agent that doesn't get the `number`th event, counted from 1.
    void StartWithoutEvent(long number, const char* name, const char* panicWord,
                           const char* lineBefore = "Initializing system")
    {
        callsUntilRefusal = number;
        ReplaceImport("CreateEventW", RefuseEvent);
        UseDefaultBridge();
        StartWatchedAgent();
        const std::string report = std::string("CreateEventW(") + name + ") failed.";
        ExpectLogOrder({lineBefore, report});
        ExpectPanic(report, panicWord);
    }

    /// Starts an Agent that doesn't get the `number`th thread, counted from 1.
    TvnDefaultAgent& StartWithoutThread(long number)
    {
        callsUntilRefusal = number;
        beginThread = reinterpret_cast<BeginThread>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ucrtbase.dll"), "_beginthreadex")));
        EXPECT_NE(nullptr, beginThread);
        ReplaceImport("_beginthreadex", RefuseThread);
        return StartWatchedAgent();
    }

    bool HasFailedToOpenAThread() const
    {
        for (const LogRecord& record : ReadLog())
        {
            if (record.tag == "ERR" && record.message.rfind("Failed to open thread ", 0) == 0)
            {
                return true;
            }
        }
        return false;
    }

    /// The Agent that lacks a mutex doesn't use its handle, and shuts down.
    void ExpectNoMutexIsUsed()
    {
        Shutdown();
        EXPECT_EQ(0u, CountInLog("Failed to Wait() on a mutex"));
        EXPECT_EQ("Shutting down default allocators for memory system", ReadLog().back().message);
    }

    /// Its log has one Panic line, after the report of the refused call.
    void ExpectPanic(const std::string& report, const std::string& panicWord)
    {
        ExpectLogOrder({report, panicWord});
        std::vector<std::string> panics;
        for (const LogRecord& record : ReadLog())
        {
            if (record.tag == "PNC")
            {
                panics.push_back(record.message);
            }
        }
        EXPECT_EQ(std::vector<std::string>{panicWord}, panics);
        EXPECT_EQ(1u, CountInLog(report));
    }
};
} // namespace

#define STARTUP_FAILURE(Name) HOST_TEST_OF(StartupFailureTest, StartupFailure, Name)

// ---- Events: a test for each, in the order of their creation ----

/// An event without which the Agent connects and shuts down all the same.
#define EVENT_REFUSED(Name, Number, EventName, PanicWord, LineBefore) \
    STARTUP_FAILURE(OfTheEvent##Name)                                 \
    {                                                                 \
        StartWithoutEvent(Number, EventName, PanicWord, LineBefore);  \
        ExpectStatus(ConnectionSucceeded);                            \
        EXPECT_TRUE(WaitForLog("Sender thread ready"));               \
        Shutdown();                                                   \
        ExpectReceiverEnd(8);                                         \
        ExpectSenderEnd(0);                                           \
    }

EVENT_REFUSED(ShouldCompileAndReload, 1, "ShouldCompileAndReload", "Cannot create hot-reload event",
              "Initializing hot-reload system")
EVENT_REFUSED(HotReload, 2, "HotReload", "Cannot create hot-reload event", "Initializing hot-reload system")
EVENT_REFUSED(HotReloadLoadPatch, 3, "HotReload load patch", "Cannot create hot-reload event",
              "Initializing hot-reload system")
EVENT_REFUSED(HotReloadLoadPatchReceived, 4, "HotReload load patch received",
              "Cannot create hot-reload event", "Initializing hot-reload system")
EVENT_REFUSED(HotReloadWaitForPatchLoad, 5, "HotReload wait for patch load", "Cannot create hot-reload event",
              "Initializing hot-reload system")
EVENT_REFUSED(HotReloadFinished, 6, "HotReload finished", "Cannot create hot-reload event",
              "Initializing hot-reload system")
EVENT_REFUSED(HotRestart, 7, "HotRestart", "Cannot create event", "Initializing hot-restart system")
EVENT_REFUSED(LatchesDead, 9, "Cannot wait for latches", "Cannot create event for startup",
              "Initializing system")
EVENT_REFUSED(WatchdogWatch, 13, "Watchdog watch", "Cannot create event for watchdog watch",
              "Initializing system")

STARTUP_FAILURE(OfTheEventWatchdogEnterEndsTheWatchdog)
{
    StartWithoutEvent(11, "Watchdog thread enter", "Cannot create event for watchdog enter");
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane watchdog' exited with result 0"));
    ExpectLogOrder({"Running watchdog thread", "Failed to Wait() on an event", "Exiting watchdog thread"});
    ExpectErrorLines({"Cannot create event for watchdog enter", "Failed to Wait() on an event"});
    Shutdown();
    ExpectReceiverEnd(8);
    ExpectSenderEnd(0);
}

STARTUP_FAILURE(OfTheEventStartupFinishedLeavesAnAgentThatIsNotTakenDown)
{
    StartWithoutEvent(8, "Startup finished", "Cannot create event for startup");
    ExpectNoBridge(); // it stays, as its Agent does
    ExpectStatus(ConnectionSucceeded);
    LeaveAgentRunning();
    Library().TvnShutdown();
    ExpectLogOrder({"Shutting down agent-bridge communication", "Failed to Wait() on an event",
                    "Failed to wait for Startup() to complete", "Shutting down hot-restart system"});
    for (const char* message :
         {"Exiting sender thread", "Exiting watchdog thread", "Exiting heart beat thread"})
    {
        EXPECT_EQ(0u, CountInLog(message)) << message;
    }
}

STARTUP_FAILURE(OfTheEventHeartbeatExitLeavesAHeartbeatThatNobodyEnds)
{
    StartWithoutEvent(10, "Heartbeat thread exit", "Cannot create event for heart beat exit");
    ExpectNoBridge(); // it stays, as its Agent does
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(WaitUntil([&] { return CountInLog("Failed to Wait() on an event") >= 3; }))
        << "It continues.";
    LeaveAgentRunning();
}

STARTUP_FAILURE(OfTheEventWatchdogExitLeavesAWatchdogThatNobodyEnds)
{
    StartWithoutEvent(12, "Watchdog thread exit", "Cannot create event for watchdog exit");
    ExpectNoBridge(); // it stays, as its Agent does
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(WaitForLog("Failed to Wait() on an event"));
    LeaveAgentRunning();
}

STARTUP_FAILURE(OfTheEventSenderConnectedLeavesAnAgentThatOnlyReceives)
{
    StartWithoutEvent(14, "Sender connected", "Cannot create event for connected sender");
    ExpectBridgeExitCode(2); // it waits for the Agent's version
    ExpectStatus(ConnectionSucceeded);
    ExpectSenderEnd(2);
    ExpectErrorLines({"Cannot create event for connected sender", "Failed to Wait() on an event",
                      "Failed to wait for sender connection event"});
    Library().TvnLogMessageANSI("This stays in the queue.");
    Shutdown();
    ExpectReceiverEnd(8);
}

// ---- Semaphores, mutexes, threads ----

STARTUP_FAILURE(OfTheQueuesFirstSemaphoreLeavesAnAgentThatSendsNothingOfItsHost)
{
    callsUntilRefusal = 1;
    ReplaceImport("CreateSemaphoreW", RefuseSemaphore);
    UseDefaultBridge();
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    agent.TvnScheduleReload();
    ExpectPanic("CreateSemaphoreW(Queue producer) failed.", "Cannot create semaphore for FixedSizeQueue");
    ExpectLogOrder({"API TvnScheduleReload", "Failed to wait on an semaphore.",
                    "Cannot wait for producer semaphore in fixed-size queue"});
    LeaveAgentRunning(); // it can't signal a shutdown to the sender
    ExpectNoBridge();    // which stays as long
}

STARTUP_FAILURE(OfTheQueuesSecondSemaphoreEndsTheSender)
{
    callsUntilRefusal = 2;
    ReplaceImport("CreateSemaphoreW", RefuseSemaphore);
    UseDefaultBridge();
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectPanic("CreateSemaphoreW(Queue consumer) failed.", "Cannot create semaphore for FixedSizeQueue");
    ExpectSenderEnd(0);
    ExpectLogOrder({"Sender thread ready", "Failed to wait on an semaphore.",
                    "Cannot wait for consumer semaphore in fixed-size queue", "Exiting sender thread"});
    agent.TvnScheduleReload();
    EXPECT_EQ(1u, CountInLog("Cannot signal consumer semaphore in fixed-size queue"));
    Shutdown();
}

STARTUP_FAILURE(OfTheMutexOfTheSharedMemoryIsNotTheEnd)
{
    const std::string identifier = std::to_string(GetCurrentProcessId());
    callsUntilRefusal = 1;
    ReplaceImport("CreateMutexW", RefuseMutex);
    UseDefaultBridge();
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectPanic("CreateMutexW(TVN_AgentBridge_Mutex_" + identifier + ") failed.",
                "Cannot create agent bridge mutex for process " + identifier);
    ExpectNoMutexIsUsed();
}

STARTUP_FAILURE(OfTheMutexOfTheHeartbeatIsNotTheEnd)
{
    const std::string identifier = std::to_string(GetCurrentProcessId());
    callsUntilRefusal = 2;
    ReplaceImport("CreateMutexW", RefuseMutex);
    UseDefaultBridge();
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(WaitForLog("Exiting heart beat thread"));
    ExpectPanic("CreateMutexW(TVN_Mutex_" + identifier + ") failed.",
                "Cannot create heart beat mutex for process " + identifier);
    ExpectNoMutexIsUsed();
}

STARTUP_FAILURE(OfTheHeartbeatThreadIsNotTheEnd)
{
    UseDefaultBridge();
    StartWithoutThread(1);
    ExpectStatus(ConnectionSucceeded);
    ExpectLogOrder({"Creating heartbeat thread", "Failed to create thread", "Creating watchdog thread"});
    EXPECT_EQ(0u, CountInLog("Thread 'Torvane heartbeat' started"));
    Shutdown();
    EXPECT_EQ("Shutting down default allocators for memory system", ReadLog().back().message);
}

STARTUP_FAILURE(OfTheReceiverThreadIsALostConnection)
{
    ExpectNoBridge();
    TvnDefaultAgent& agent = StartWithoutThread(4);
    ExpectStatus(ConnectionFailed);
    ExpectLogOrder({"Creating receiver thread", "Failed to create thread"});
    const TestThread caller([&agent] {
        agent.TvnEnableModule(L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr);
        agent.TvnDisableModule(L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr);
    });
    EXPECT_TRUE(caller.WaitForEnd(testTimeout));
    Shutdown();
    EXPECT_EQ("Shutting down default allocators for memory system", ReadLog().back().message);
}

STARTUP_FAILURE(ToOpenTheWaitingThreadMakesItWaitWithoutATimeout)
{
    UseOwnAgentFolder();
    ReplaceImport("OpenThread", RefuseToOpenThread);
    StartWatchedAgent();
    EXPECT_TRUE(WaitUntil([&] { return HasFailedToOpenAThread(); }));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane connect named pipe' exited with result 0"));
    Signal("timed out");
    ExpectStatus(ConnectionSucceeded);
    EXPECT_EQ(0u, CountInLog("ConnectNamedPipe failed."));
}

// ---- The OS's version and the executable ----

STARTUP_FAILURE(OfTheOSVersionIsLoggedAndLeavesZeros)
{
    ReplaceImport("GetProcAddress", GetRefusingProcAddress);
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectLogOrder({"Initializing system", "Call to function RtlGetVersion failed. Error: 0xC0000123",
                    "Initializing hot-reload system"});
    ExpectErrorLines({"Call to function RtlGetVersion failed. Error: 0xC0000123"});
}

STARTUP_FAILURE(ToOpenTheExecutableEndsTheReceiverWith12)
{
    ReplaceImport("CreateFileW", RefuseExecutable);
    StartWatchedAgent();
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(12);
    const std::wstring path = ProgramPath();
    const std::string error = "Failed to open executable " + std::string(path.begin(), path.end());
    ExpectLogOrder({"Pipes connected", "Registering agent with bridge", "Registering process with bridge",
                    error, "Thread 'Torvane receiver' exited with result 12"});
    ExpectErrorLines({error});
    EXPECT_EQ(0u, CountInLog("Initialization done"));
    Signal("failed");
    ExpectHostWorksAndShutsDown();
    ExpectSenderEnd(3);
    ExpectErrorLines({error, "Failed to send Version blob"});
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, StartupFailure, ToOpenTheWaitingThreadMakesItWaitWithoutATimeout)
{
    EXPECT_TRUE(Await("timed out"));
    EXPECT_TRUE(Connect());
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO(StartupFailure, OfTheOSVersionIsLoggedAndLeavesZeros)
{
    EXPECT_EQ("0.0, 0", agent.AnsiString(agent->osVersion));
}

BRIDGE_SCENARIO_OF(BridgeTest, StartupFailure, ToOpenTheExecutableEndsTheReceiverWith12)
{
    EXPECT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(Await("failed"));
    EXPECT_FALSE(link.Receive(0)) << "Nothing is sent on a connection that has failed.";
}

#endif
