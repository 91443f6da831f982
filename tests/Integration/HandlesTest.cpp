#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// In which order startup creates what the Agent needs of the OS, and shutdown gives it back.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/HandleTrace.h"

#include <algorithm>

namespace
{
// By the order of their creation, after the events of the hot reload.
const std::string hotRestart = "event 7";
const std::string startupFinished = "event 8";
const std::string latchesDead = "event 9";
const std::string heartbeatExit = "event 10";
const std::string watchdogEnter = "event 11";
const std::string watchdogExit = "event 12";
const std::string watchdogWatch = "event 13";
const std::string senderConnected = "event 14";
const std::string producer = "semaphore 1";
const std::string consumer = "semaphore 2";
const std::string agentPipe = "pipe 1";
const std::string bridgePipe = "pipe 2";
const std::string heartbeat = "thread 1";
const std::string watchdog = "thread 2";
const std::string sender = "thread 3";
const std::string receiver = "thread 4";
const std::string logFile = "file 1";

using Calls = std::vector<std::string>;

Calls operator+(Calls first, const Calls& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Calls StartupCalls()
{
    Calls calls = {"create " + logFile};
    for (const std::string& created : {shouldCompileAndReload,
                                       hotReload,
                                       loadPatch,
                                       loadPatchReceived,
                                       waitForPatchLoad,
                                       hotReloadFinished,
                                       hotRestart,
                                       startupFinished,
                                       producer,
                                       consumer,
                                       latchesDead,
                                       std::string("mapping 1"),
                                       std::string("view 1"),
                                       std::string("mutex 1"),
                                       agentPipe,
                                       bridgePipe,
                                       heartbeatExit,
                                       watchdogEnter,
                                       watchdogExit,
                                       watchdogWatch,
                                       senderConnected,
                                       heartbeat,
                                       watchdog,
                                       sender,
                                       receiver})
    {
        calls.push_back("create " + created);
    }
    return calls;
}

Calls ShutdownCalls(const Calls& ofTheBridge)
{
    return Calls{"wait for " + startupFinished, "cancel " + sender,         "cancel " + receiver,
                 "flush " + bridgePipe,         "disconnect " + bridgePipe, "flush " + agentPipe,
                 "disconnect " + agentPipe,     "wait for " + receiver,     "close " + receiver,
                 "set " + senderConnected,
                 "wait for " + producer, // the push of the stop mark
                 "release " + consumer,         "wait for " + sender,       "close " + sender,
                 "close " + senderConnected,    "set " + watchdogWatch,     "set " + watchdogExit,
                 "set " + watchdogEnter,        "wait for " + watchdog,     "close " + watchdog,
                 "close " + watchdogWatch,      "close " + watchdogExit,    "close " + watchdogEnter,
                 "set " + heartbeatExit,        "wait for " + heartbeat,    "close " + heartbeat,
                 "close " + heartbeatExit,      "close " + bridgePipe,      "close " + agentPipe} +
           ofTheBridge +
           Calls{"close " + producer,
                 "close " + consumer,
                 "close " + startupFinished,
                 "close " + latchesDead,
                 "close mutex 1",
                 "unmap view 1",
                 "close mapping 1",
                 "close " + hotRestart,
                 "close " + shouldCompileAndReload,
                 "close " + hotReload,
                 "close " + loadPatch,
                 "close " + loadPatchReceived,
                 "close " + waitForPatchLoad,
                 "close " + hotReloadFinished,
                 "close " + logFile};
}

// The blocks of the queue and of the list of latches, which are larger than any other that shutdown frees.
constexpr SIZE_T listOfLatchesSize = 4096 * sizeof(void*);

BOOL WINAPI NoteFree(HANDLE heap, DWORD flags, void* block)
{
    const SIZE_T size = HeapSize(heap, flags, block);
    if (size == listOfLatchesSize)
    {
        HandleTrace::Note("free the list of latches");
    }
    else if (size > listOfLatchesSize && size != static_cast<SIZE_T>(-1))
    {
        HandleTrace::Note("free the queue");
    }
    return HeapFree(heap, flags, block);
}

void WINAPI NoteDelete(CRITICAL_SECTION* section)
{
    HandleTrace::Note("delete a lock");
    DeleteCriticalSection(section);
}

const Calls closesTheBridge = {"close process 1", "close first thread 1"};

class HandlesTest : public LinkTest
{
protected:
    void ExpectCalls(const Calls& expected)
    {
        EXPECT_EQ(expected, trace->OwnCalls());
        EXPECT_EQ(Calls{}, trace->OpenHandles()) << "All threads' handles are closed,";
        EXPECT_EQ(0u, trace->FailedCloses()) << "each of them once.";
    }

    void Prepare()
    {
        trace = new HandleTrace(Library().Module()); // for the rest of the process
    }

    HandleTrace* trace = nullptr;
};
} // namespace

#define HANDLES(Name) HOST_TEST_OF(HandlesTest, Handles, Name)

HANDLES(OfAConnectedDefaultAgent)
{
    UseDefaultBridge();
    Prepare();
    StartWatchedAgent();
    EXPECT_EQ(StartupCalls(), trace->OwnCalls());
    ExpectStatus(ConnectionSucceeded);
    Shutdown();
    ExpectCalls(StartupCalls() + ShutdownCalls(closesTheBridge));
}

HANDLES(AndWhatBelongsToThemAreReleasedInOrder)
{
    UseDefaultBridge();
    Prepare();
    ReplaceImport("HeapFree", NoteFree);
    ReplaceImport("DeleteCriticalSection", NoteDelete);
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    Shutdown();
    const Calls all = trace->OwnCalls();
    const auto first = std::find(all.begin(), all.end(), closesTheBridge.back());
    const auto last = std::find(first, all.end(), "close " + shouldCompileAndReload);
    ASSERT_NE(all.end(), last);
    EXPECT_EQ((Calls{"close " + producer, "close " + consumer, "free the queue", "close " + startupFinished,
                     "close " + latchesDead, "delete a lock", "free the list of latches", "close mutex 1",
                     "unmap view 1", "close mapping 1", "delete a lock", // the connection state's
                     "close " + hotRestart}),
              Calls(first + 1, last));
}

HANDLES(OfAConnectedSynchronizedAgent)
{
    UseDefaultBridge();
    Prepare();
    StartSynchronizedAgent();
    EXPECT_EQ(StartupCalls(), trace->OwnCalls());
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    Shutdown();
    ExpectCalls(StartupCalls() + ShutdownCalls(closesTheBridge));
}

HANDLES(OfAnAgentWithoutABridge)
{
    RemoveBridge();
    Prepare();
    StartWatchedAgent();
    ExpectStatus(ConnectionFailed);
    Shutdown();
    ExpectCalls(StartupCalls() + ShutdownCalls({}));
}

HANDLES(OfAnAgentWhoseBridgeNeverConnects)
{
    UseOwnAgentFolder();
    Prepare();
    StartWatchedAgent();
    ExpectStatus(ConnectionFailed);
    Shutdown();
    ExpectCalls(StartupCalls() + ShutdownCalls(closesTheBridge));
    Signal("shut down");
}

HANDLES(OfAnAgentThatIsShutDownAtOnce)
{
    UseDefaultBridge();
    ExpectNoBridge(); // it can find its pipes closed already
    Prepare();
    StartDefaultAgent();
    Shutdown();
    ExpectCalls(StartupCalls() + ShutdownCalls(closesTheBridge));
}

HANDLES(OfAnAgentWhoseBridgeHasDied)
{
    Prepare();
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectReceiverEnd(8);
    EXPECT_TRUE(WaitForBridge());
    Shutdown();
    ExpectCalls(StartupCalls() + ShutdownCalls(closesTheBridge));
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, Handles, OfAnAgentWhoseBridgeNeverConnects)
{
    EXPECT_TRUE(Await("shut down"));
}

BRIDGE_SCENARIO_OF(BridgeTest, Handles, OfAnAgentWhoseBridgeHasDied)
{
    EXPECT_TRUE(Connect());
    link.Close();
}

#endif
