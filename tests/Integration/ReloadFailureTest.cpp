#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Reloads and restarts when the OS refuses an event, a wait or a thread.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/AgentEvent.h"
#include "tests/Support/Integration/HandleTrace.h"

#include <algorithm>

namespace
{
constexpr auto noSuchBehaviour = static_cast<TvnRestartBehaviour>(4);
constexpr DWORD creationError = 0x7FFFFFF0; // no handle has this value

volatile DWORD refusedThread; ///< whose calls fail; 0 for none

decltype(&CreateEventW) createEvent;

HANDLE WINAPI RefuseEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL signalled, const wchar_t* name)
{
    if (GetCurrentThreadId() != refusedThread)
    {
        return createEvent(security, manual, signalled, name);
    }
    SetLastError(creationError);
    return nullptr;
}

DWORD WINAPI RefuseWait(HANDLE handle, DWORD milliseconds)
{
    if (GetCurrentThreadId() != refusedThread || WaitForSingleObject(handle, 0) == WAIT_OBJECT_0)
    {
        return WaitForSingleObject(handle, milliseconds); // or the queue has room
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

using ThreadFunction = unsigned(__stdcall*)(void*);
using BeginThread = uintptr_t(__cdecl*)(void*, unsigned, ThreadFunction, void*, unsigned, unsigned*);
BeginThread beginThread;
volatile bool refusesThreads;

uintptr_t __cdecl RefuseThread(void* security, unsigned stackSize, ThreadFunction function, void* argument,
                               unsigned flags, unsigned* id)
{
    return refusesThreads ? 0 : beginThread(security, stackSize, function, argument, flags, id);
}

/// In place of the end of the process.
struct Termination
{
    static inline volatile LONG count = 0;
    static inline HANDLE process = nullptr;
    static inline UINT exitCode = 0;
    static inline std::vector<std::string> openHandles;
    static inline const HandleTrace* trace = nullptr;

    static BOOL WINAPI Note(HANDLE handle, UINT code)
    {
        process = handle;
        exitCode = code;
        openHandles = trace->OpenHandles();
        InterlockedIncrement(&count);
        return TRUE;
    }
};

class ReloadFailureTest : public HostTest
{
protected:
    void Trace()
    {
        Termination::trace = trace = new HandleTrace(Library().Module()); // for the rest of the process
        ReplaceImport("TerminateProcess", Termination::Note);
    }

    static std::vector<std::string> Added(const std::vector<std::string>& before,
                                          std::vector<std::string> after)
    {
        for (const std::string& handle : before)
        {
            const auto found = std::find(after.begin(), after.end(), handle);
            if (found != after.end())
            {
                after.erase(found);
            }
        }
        return after;
    }

    const HandleTrace* trace = nullptr;
};

using Names = std::vector<std::string>;
} // namespace

#define RELOAD_FAILURE(Name) HOST_TEST_OF(ReloadFailureTest, ReloadFailure, Name)

RELOAD_FAILURE(OfTheHostsWaitForTheEndIsLogged)
{
    UseDefaultBridge();
    new AgentEvent(Library().Module(), hotReloadFinishedEvent); // for the rest of the process
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    AgentEvent::FailWaits(INFINITE);
    agent.TvnReload(WaitUntilFinished);
    EXPECT_EQ(1, AgentEvent::CountWaits());
    ExpectLogOrder(
        {"API TvnReload", "Failed to Wait() on an event", "Could not wait for event during hot-reload"});
    EXPECT_EQ(1u, CountInLog("Could not wait for event during hot-reload"));
}

RELOAD_FAILURE(OfTheWaitForTheHostIsLoggedAndThePatchLoaded)
{
    PublishText("patch", ImagePath(L"PlainPatch"));
    new AgentEvent(Library().Module(), loadPatchReceivedEvent); // for the rest of the process
    AgentEvent::FailWaits(INFINITE);
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(WaitUntil([&] {
        agent.TvnWantsReload(SyncBeforeLoad);
        return CountInLog("API TvnReload") != 0;
    }));
    Signal("accepted");
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(1, AgentEvent::CountWaits());
    EXPECT_NE(nullptr, GetModuleHandleW(ImagePath(L"PlainPatch").c_str()));
    ExpectLogOrder({"Processing Blob::LoadPatchWindows", "Failed to Wait() on an event",
                    "Could not wait for event during hot-reload"});
    EXPECT_EQ(1u, CountInLog("Could not wait for event during hot-reload"));
}

RELOAD_FAILURE(OfARestartsEventIsAPanicAndTheProcessEnds)
{
    createEvent = ReplaceImport("CreateEventW", RefuseEvent);
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    refusedThread = GetCurrentThreadId();
    agent.TvnRestart(noSuchBehaviour, 7);
    refusedThread = 0;
    ExpectLogOrder({"API TvnRestart", "CreateEventW(HotRestart) failed.", "Cannot create event for restart",
                    "Failed to Wait() on an event", "Could not wait for event during hot-restart"});
    EXPECT_EQ(1u, CountInLog("Cannot create event for restart"));
    EXPECT_TRUE(Await("checked"));
}

RELOAD_FAILURE(OfARestartsWaitIsLoggedAndTheProcessEnds)
{
    Trace();
    ReplaceImport("WaitForSingleObject", RefuseWait);
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    refusedThread = GetCurrentThreadId();
    agent.TvnRestart(TvnRestartTerminateProcess, 7);
    refusedThread = 0;
    ExpectLogOrder(
        {"API TvnRestart", "Failed to Wait() on an event", "Could not wait for event during hot-restart"});
    EXPECT_EQ(1u, CountInLog("Could not wait for event during hot-restart"));
    EXPECT_EQ(1, Termination::count);
    EXPECT_EQ(GetCurrentProcess(), Termination::process);
    EXPECT_EQ(7u, Termination::exitCode);
    EXPECT_TRUE(Await("checked"));
}

RELOAD_FAILURE(OfARestartsThreadIsLoggedAndNothingElse)
{
    Trace();
    beginThread = ReplaceImport("_beginthreadex", RefuseThread);
    ConnectDefaultAgent();
    refusesThreads = true;
    Signal("refusing");
    EXPECT_TRUE(Await("checked"));
    ExpectLogOrder({"Sender thread ready", "Failed to create thread"});
    EXPECT_EQ(1u, CountInLog("Failed to create thread"));
    EXPECT_EQ(0u, CountInLog("API TvnRestart"));
    EXPECT_EQ(0u, trace->FailedCloses());
}

// This restart doesn't fail.

RELOAD_FAILURE(LeavesNoHandleOfARestartOpen)
{
    Trace();
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    const Names before = trace->OpenHandles();
    Signal("connected");
    EXPECT_TRUE(Await("checked"));
    EXPECT_TRUE(WaitForLog("Thread 'Torvane restart' exited with result 0"));
    EXPECT_EQ(1, Termination::count);
    EXPECT_EQ(0u, Termination::exitCode);
    EXPECT_EQ(Names{}, Added(before, Termination::openHandles)) << "All is closed before the end.";
    EXPECT_EQ(0u, trace->FailedCloses());
}

#else

BRIDGE_SCENARIO(ReloadFailure, OfTheWaitForTheHostIsLoggedAndThePatchLoaded)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Await("accepted"));
    PatchCommand patch;
    patch.path = AwaitText("patch");
    ASSERT_TRUE(SendLoadPatch(link, patch));
    EXPECT_TRUE(WaitFor<PatchLoadedBlob>());
}

BRIDGE_SCENARIO(ReloadFailure, OfARestartsEventIsAPanicAndTheProcessEnds)
{
    const auto restart = WaitFor<RestartBlob>();
    ASSERT_TRUE(restart);
    EXPECT_EQ(0x7FFFFFF0u, restart->event) << "the error code, in place of a handle";
}

BRIDGE_SCENARIO(ReloadFailure, OfARestartsWaitIsLoggedAndTheProcessEnds)
{
    EXPECT_TRUE(WaitFor<RestartBlob>()); // and nobody answers: its event has been closed
}

BRIDGE_SCENARIO(ReloadFailure, OfARestartsThreadIsLoggedAndNothingElse)
{
    ASSERT_TRUE(Await("refusing"));
    ASSERT_TRUE(SendRequestRestart(link));
    ExpectNoReply();
}

BRIDGE_SCENARIO(ReloadFailure, LeavesNoHandleOfARestartOpen)
{
    ASSERT_TRUE(Await("connected"));
    ASSERT_TRUE(SendRequestRestart(link));
    const auto restart = WaitFor<RestartBlob>();
    ASSERT_TRUE(restart);
    ASSERT_TRUE(SendExitProcessForHotRestart(link, restart->event));
}

#endif
