#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A Bridge that ends while the host's threads are suspended. The host continues each time.

namespace
{
/// How often each of the host's threads has been through its loop.
struct Counters
{
    volatile LONG counts[3];
    volatile LONG stop;
};
} // namespace

#if TORVANE_HOST_HALF

#include "tests/Support/TestThread.h"

#include <memory>
#include <vector>

namespace
{
Counters counters;

class GuardedHost : public LinkTest
{
protected:
    void ExpectThreadsToRunAgain()
    {
        Publish("counters", &counters);
        std::vector<std::unique_ptr<TestThread>> threads;
        for (volatile LONG& count : counters.counts)
        {
            threads.push_back(std::make_unique<TestThread>([&count] {
                while (counters.stop == 0)
                {
                    InterlockedIncrement(&count);
                    Sleep(1);
                }
            }));
        }
        StartWatchedAgent();
        EXPECT_TRUE(Await("suspended")) << "The Bridge has seen that no thread moves.";
        ExpectReceiverEnd(8);
        for (volatile LONG& count : counters.counts)
        {
            const LONG before = count;
            EXPECT_TRUE(WaitUntil([&] { return count > before; }));
        }
        counters.stop = 1;
        threads.clear();
        ExpectHostWorksAndShutsDown();
    }
};
} // namespace

#define GUARD_HOST(Name)                               \
    HOST_TEST_OF(GuardedHost, BridgeThreadGuard, Name) \
    {                                                  \
        ExpectThreadsToRunAgain();                     \
    }

HOST_TEST_OF(GuardedHost, BridgeThreadGuard, ResumesTheThreadsOfABridgeThatCrashes)
{
    ExpectBridgeExitCode(EXCEPTION_ACCESS_VIOLATION);
    ExpectThreadsToRunAgain();
}

GUARD_HOST(ResumesTheThreadsOfABridgeThatIsKilled)
GUARD_HOST(ResumesTheThreadsOfABridgeThatExits)
GUARD_HOST(IsStartedAgainIfItHasEnded)

#else

#include "Agent/Protocol/Names.h"
#include <stdlib.h>

#include <tlhelp32.h>

namespace
{
class GuardedBridge : public ConnectedBridgeTest
{
protected:
    /// Nothing is left to the end of an object or of the test.
    void SuspendWithoutEnd()
    {
        session = new Session(link, *agent, *process);
        const AddressSlot counters = AwaitNumber("counters");
        ASSERT_TRUE(session->SuspendThreads());
        const std::vector<uint8_t> before = host.Read(counters, sizeof(Counters));
        Sleep(200);
        ASSERT_EQ(sizeof(Counters), before.size());
        ASSERT_EQ(before, host.Read(counters, sizeof(Counters)));
    }

    /// The processes of this program that this one has started.
    static std::vector<DWORD> Guards()
    {
        std::vector<DWORD> ids;
        const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
        PROCESSENTRY32W entry = {};
        entry.dwSize = sizeof(entry);
        for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry))
        {
            if (entry.th32ParentProcessID == GetCurrentProcessId() &&
                _wcsicmp(entry.szExeFile, bridgeFileName) == 0)
            {
                ids.push_back(entry.th32ProcessID);
            }
        }
        CloseHandle(snapshot);
        return ids;
    }

    static void EndProcess(DWORD id)
    {
        const HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
        TerminateProcess(process, 0);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, testTimeout));
        CloseHandle(process);
    }

    Session* session = nullptr;
};
} // namespace

#define GUARD_BRIDGE(Name) BRIDGE_SCENARIO_OF(GuardedBridge, BridgeThreadGuard, Name)

GUARD_BRIDGE(ResumesTheThreadsOfABridgeThatIsKilled)
{
    SuspendWithoutEnd();
    ASSERT_FALSE(HasFatalFailure());
    Signal("suspended");
    Die();
}

GUARD_BRIDGE(ResumesTheThreadsOfABridgeThatCrashes)
{
    SuspendWithoutEnd();
    ASSERT_FALSE(HasFatalFailure());
    Signal("suspended");
    RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

GUARD_BRIDGE(ResumesTheThreadsOfABridgeThatExits)
{
    SuspendWithoutEnd();
    ASSERT_FALSE(HasFatalFailure());
    Signal("suspended");
    _exit(0);
}

GUARD_BRIDGE(IsStartedAgainIfItHasEnded)
{
    Session first(link, *agent, *process);
    ASSERT_TRUE(first.SuspendThreads());
    first.ResumeThreads();
    const std::vector<DWORD> guards = Guards();
    ASSERT_EQ(1u, guards.size());
    EndProcess(guards[0]);
    SuspendWithoutEnd();
    ASSERT_FALSE(HasFatalFailure());
    Signal("suspended");
    Die();
}

#endif
