#include "tests/Support/Integration/IntegrationTest.h"
#include "tests/Support/TestThread.h"

#include <windows.h>

#include <memory>
#include <utility>
#include <vector>

// Reloads while the host's threads are suspended at bad moments. The Bridge suspends them from its own process.
//
// A thread is caught at an exact place by a gate: a few instructions between the Agent and a function of the OS that
// it imports, where threads wait while the Bridge has the gate closed. The host half does nothing while its threads are
// suspended: it is suspended too.
//
// A naive Bridge suspends all threads, commands a reload and resumes them. A Bridge that avoids deadlocks first lets
// threads run until none is inside the Agent, and resumes them when the watchdog requests it.

namespace
{
/// Words of the host that both halves read.
struct Words
{
    volatile uint32_t stop;   ///< the host's threads end
    volatile uint32_t inside; ///< 1 while a thread is where the test wants it
    volatile uint32_t closed; ///< the gate
    volatile uint32_t old;    ///< what a reload of these tests overwrites, with the number of the reload
};
} // namespace

#if TORVANE_HOST_HALF

extern "C"
{
Words words;
void* afterTheGate;
void Gate();
}

// Compares and jumps, touching neither stack nor registers, so that the function after it finds its caller's state.
asm(R"(
    .globl _Gate
_Gate:
    pause
    cmpl $0, _words + 8
    jne _Gate
    jmpl *_afterTheGate
)");
static_assert(offsetof(Words, closed) == 8);

namespace
{
/// Milliseconds, less than the longest time limit of these tests.
constexpr uint32_t timeToStop = 9 * 60 * 1000;

class SuspendedThreadsHost : public HostTest
{
protected:
    TvnDefaultAgent& Start()
    {
        Publish("words", &words);
        Publish("agent", Library().Module());
        PublishText("patch", ExecutableFolder() + L"\\images\\SlowLoad.dll");
        TvnDefaultAgent& agent = ConnectDefaultAgent();
        return agent;
    }

    /// Puts the gate between the Agent and a function that it imports.
    void PutGateBefore(const char* import)
    {
        afterTheGate = reinterpret_cast<void*>(ReplaceImport(import, &Gate));
        Publish("gate", reinterpret_cast<const void*>(&Gate));
    }

    /// Threads that do something again and again until the Bridge half has set `stop`.
    void RunUntilStopped(uint32_t count, const std::function<void()>& action)
    {
        std::vector<std::unique_ptr<TestThread>> threads;
        for (uint32_t i = 0; i < count; ++i)
        {
            threads.push_back(std::make_unique<TestThread>([action] {
                while (words.stop == 0)
                {
                    action();
                }
            }));
        }
        Publish("thread", uint64_t(threads.front()->Id()));
        for (const auto& thread : threads)
        {
            EXPECT_TRUE(thread->WaitForEnd(timeToStop)) << "The Bridge hasn't stopped the host's threads.";
        }
    }
};
} // namespace

#define SUSPENDED_HOST(Name) HOST_TEST_OF(SuspendedThreadsHost, SuspendedThreads, Name)

SUSPENDED_HOST(AThreadInTheProcessHeap)
{
    Start();
    RunUntilStopped(1, [] {
        HeapLock(GetProcessHeap());
        words.inside = 1;
        Sleep(50);
        words.inside = 0;
        HeapUnlock(GetProcessHeap());
        Sleep(1);
    });
    EXPECT_LE(1u, CountInLog("Possible hang detected while loading patch code, resuming held threads"));
}

SUSPENDED_HOST(AWatchdogThatIsLate)
{
    Start();
    RunUntilStopped(1, [] { Sleep(1); });
}

SUSPENDED_HOST(AThreadInTheProcessHeapAfterTheLoad)
{
    Start();
    RunUntilStopped(1, [] {
        HeapLock(GetProcessHeap());
        words.inside = 1;
        Sleep(50);
        words.inside = 0;
        HeapUnlock(GetProcessHeap());
        Sleep(1);
    });
    ExpectLogOrder({"Possible hang detected while loading patch code, resuming held threads",
                    "Waiting for loading to finish", "Suspending held threads"});
}

SUSPENDED_HOST(AThreadInAnotherLibrarysEntryPoint)
{
    const std::wstring other = ExecutableFolder() + L"\\images\\SlowLoadToo.dll";
    SetEnvironmentVariableA("TORVANE_TEST_LOAD_WORD",
                            std::to_string(reinterpret_cast<uintptr_t>(&words.inside)).c_str());
    Start();
    RunUntilStopped(1, [&] {
        SetEnvironmentVariableA("TORVANE_TEST_LOAD_TIME", "100");
        const HMODULE module = LoadLibraryW(other.c_str());
        SetEnvironmentVariableA("TORVANE_TEST_LOAD_TIME", "0");
        FreeLibrary(module);
    });
    EXPECT_LE(1u, CountInLog("Possible hang detected while loading patch code, resuming held threads"));
}

SUSPENDED_HOST(AThreadInALogCall)
{
    TvnDefaultAgent& agent = Start();
    PutGateBefore("WriteFile");
    RunUntilStopped(1, [&] { agent.TvnSetIntPreferences(1, 1); });
}

SUSPENDED_HOST(AThreadInAPush)
{
    TvnDefaultAgent& agent = Start();
    PutGateBefore("ReleaseSRWLockExclusive");
    RunUntilStopped(1, [&] { agent.TvnSetIntPreferences(1, 1); });
}

SUSPENDED_HOST(AThreadInAnAllocation)
{
    TvnDefaultAgent& agent = Start();
    PutGateBefore("LeaveCriticalSection");
    RunUntilStopped(1, [&] { agent.TvnSetIntPreferences(1, 1); });
}

SUSPENDED_HOST(AThreadInTheConnectionCallback)
{
    TvnDefaultAgent& agent = Start();
    RunUntilStopped(1, [&] {
        agent.TvnOnConnection(nullptr, [](void*, TvnConnectionStatus) {
            words.inside = 1;
            while (words.stop == 0)
            {
                Sleep(1);
            }
        });
    });
}

SUSPENDED_HOST(AThreadInTheWaitForEnabledModules)
{
    TvnDefaultAgent& agent = Start();
    const std::wstring executable = ProgramPath();
    RunUntilStopped(1, [&] {
        words.inside = 1;
        agent.TvnEnableModule(executable.c_str(), ExactlyTheseModules, nullptr, nullptr);
        words.inside = 0;
        Sleep(1);
    });
    ExpectNoErrorsInLog();
}

SUSPENDED_HOST(TwentyThreadsAtRandomAHundredReloads)
{
    SetTimeLimit(600);
    TvnDefaultAgent& agent = Start();
    const std::wstring executable = ProgramPath();
    static volatile LONG next;
    RunUntilStopped(20, [&] {
        const LONG number = InterlockedIncrement(&next);
        Sleep(number % 3); // a host has other things to do as well
        switch (number % 16)
        {
        case 0:
            FreeLibrary(LoadLibraryW(L"C:\\windows\\system32\\cards.dll"));
            break;
        case 1:
        case 2:
            HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, 1000));
            break;
        case 3:
        case 4:
            agent.TvnOnConnection(nullptr, [](void*, TvnConnectionStatus) {});
            break;
        case 5:
            agent.TvnSetStringPreferences(1, std::string(200, 'x').c_str());
            break;
        case 6:
            agent.TvnEnableModule(executable.c_str(), ExactlyTheseModules, nullptr, nullptr);
            break;
        case 7:
            agent.TvnLogMessage(L"a message that is a bit longer than the others");
            break;
        default:
            agent.TvnSetIntPreferences(1, 1);
            break;
        }
    });
    Signal("ended");
    EXPECT_TRUE(Await("reloaded"));
}

#else

namespace
{
constexpr uint32_t gateSize = 32; // bytes, at most

class SuspendedThreadsBridge : public ConnectedBridgeTest
{
protected:
    void SetUp() override
    {
        ConnectedBridgeTest::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        words = AwaitNumber("words");
        image = host.ImageAt(AwaitNumber("agent"));
        memory = OpenProcess(PROCESS_VM_READ | PROCESS_VM_WRITE | PROCESS_VM_OPERATION, FALSE, host.Id());
        session = std::make_unique<Session>(link, *agent, *process);
        threads = &session->Threads();
        ASSERT_NE(0u, image.base);
        ASSERT_NE(nullptr, memory);
    }

    void TearDown() override
    {
        if (!HasFatalFailure())
        {
            threads->Resume();
            Stop();
        }
        ConnectedBridgeTest::TearDown();
        CloseHandle(memory);
    }

    // Past the Agent

    void WriteWord(AddressSlot address, uint32_t word)
    {
        EXPECT_TRUE(
            WriteProcessMemory(memory, reinterpret_cast<void*>(address), &word, sizeof(word), nullptr));
    }

    uint32_t ReadWord(AddressSlot address)
    {
        const std::vector<uint8_t> bytes = host.Read(address, sizeof(uint32_t));
        uint32_t word = 0;
        EXPECT_EQ(sizeof(word), bytes.size());
        memcpy(&word, bytes.data(), bytes.size());
        return word;
    }

    void Stop()
    {
        WriteWord(words + offsetof(Words, stop), 1);
    }

    // Suspending

    /// Suspends all threads at a moment in which `inside` is 1.
    void SuspendInside()
    {
        for (;;)
        {
            ASSERT_TRUE(threads->Suspend());
            if (ReadWord(words + offsetof(Words, inside)) == 1)
            {
                return;
            }
            threads->Resume();
        }
    }

    /// Suspends all threads at a moment in which the host's thread is in the gate.
    void SuspendInGate()
    {
        const AddressSlot gate = AwaitNumber("gate");
        const HANDLE thread = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE,
                                         static_cast<DWORD>(AwaitNumber("thread")));
        ASSERT_NE(nullptr, thread);
        for (uint32_t look = 0;; ++look) // it gets there repeatedly
        {
            // A thread of the Agent may be in the gate with a lock that the host's thread needs to get there: so the
            // gate opens now and then.
            WriteWord(words + offsetof(Words, closed), look % 20 != 0);
            WOW64_CONTEXT context = {};
            context.ContextFlags = WOW64_CONTEXT_CONTROL;
            SuspendThread(thread);
            ASSERT_TRUE(Wow64GetThreadContext(thread, &context));
            if (context.Eip >= gate && context.Eip < gate + gateSize)
            {
                break;
            }
            ResumeThread(thread);
            Sleep(1);
        }
        WriteWord(words + offsetof(Words, closed), 0); // the Agent's own threads may wait there too
        ASSERT_TRUE(threads->Suspend());
        ResumeThread(thread); // `threads` suspends it as well
        CloseHandle(thread);
    }

    // Reloading, with all threads suspended

    bool CommandLoad()
    {
        PatchCommand command;
        command.path = AwaitText("patch");
        command.watchdog = true;
        return SendLoadPatch(link, command);
    }

    /// A whole reload of a Bridge that avoids deadlocks. The threads are suspended when it begins and run when it has
    /// ended.
    void Reload(uint32_t number)
    {
        ASSERT_TRUE(session->SuspendThreads());
        PatchCommand command;
        command.path = AwaitText("patch");
        const auto loaded = LoadPatch(*session, command, testTimeout);
        ASSERT_TRUE(loaded) << loaded.Reason();

        const AddressSlot place = words + offsetof(Words, old);
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&number);
        const std::vector<uint8_t> expected(bytes, bytes + sizeof(number));
        ASSERT_TRUE(SendSetPageProtection(link, {{place, 4, PAGE_READWRITE, 0}}));
        ASSERT_TRUE(SendWriteMemory(link, {place}, expected));
        ASSERT_TRUE(SendFlushInstructionCache(link));
        const auto read = ReadMemory(link, place, sizeof(number), testTimeout);
        ASSERT_TRUE(read) << read.Reason();
        EXPECT_EQ(expected, *read);
        session->ResumeThreads();
        ASSERT_TRUE(SendUnloadPatch(link, (*loaded)->base));
        ASSERT_TRUE(SendFinishAfterHotReload(link));
        ASSERT_TRUE(Fence());
    }

    /// All threads are suspended, one of them in the gate with a lock that a reply needs.
    void ExpectReplyOnlyOutsideTheAgent()
    {
        ASSERT_TRUE(SendEchoRequest(link, 1));
        EXPECT_FALSE(link.WaitFor<EchoReplyBlob>(2000));
        threads->Resume();
        EXPECT_TRUE(WaitFor<EchoReplyBlob>());

        SuspendInGate();
        EXPECT_LE(1u, threads->RunUntilOutside(image.base, image.size));
        ASSERT_TRUE(SendEchoRequest(link, 1));
        EXPECT_TRUE(WaitFor<EchoReplyBlob>());
        Reload(2);
    }

    void AcknowledgeModules()
    {
        while (const Received<EnableModulesBlob> enabled{link.WaitForOneOf({BlobType::EnableModules}, 0)})
        {
            ASSERT_TRUE(SendDecrementLatch(link, enabled->latch));
        }
    }

    AddressSlot words = 0;
    Bridge::HostProcess::Image image = {};
    HANDLE memory = nullptr;
    std::unique_ptr<Session> session;
    ThreadSuspender* threads = nullptr;
};
} // namespace

#define SUSPENDED_BRIDGE(Name) BRIDGE_SCENARIO_OF(SuspendedThreadsBridge, SuspendedThreads, Name)

SUSPENDED_BRIDGE(AThreadInTheProcessHeap)
{
    SuspendInside();
    Reload(1);
}

SUSPENDED_BRIDGE(AWatchdogThatIsLate)
{
    ASSERT_TRUE(threads->Suspend());
    EXPECT_LT(0u, threads->Count());
    threads->ResumeForLoad();
    EXPECT_EQ(0u, threads->Count());
    ASSERT_TRUE(threads->SuspendAfterLoad());
    EXPECT_LT(0u, threads->Count()) << "in time";
    threads->ResumeForLoad();
    threads->Resume(); // the reload has ended
    ASSERT_TRUE(threads->SuspendAfterLoad());
    EXPECT_EQ(0u, threads->Count());
    threads->ResumeForLoad(); // both late
    ASSERT_TRUE(threads->SuspendAfterLoad());
    EXPECT_EQ(0u, threads->Count());
    Stop();
}

SUSPENDED_BRIDGE(AThreadInTheProcessHeapAfterTheLoad)
{
    SuspendInside();
    ASSERT_TRUE(CommandLoad());
    ASSERT_TRUE(link.WaitForOneOf({BlobType::ResumeHeldThreads}, testTimeout))
        << "The loader needs the heap.";
    threads->Resume();
    ASSERT_TRUE(link.WaitForOneOf({BlobType::SuspendHeldThreads}, testTimeout));
    SuspendInside();
    // A naive Bridge: what is left to do after the load needs the heap as well, and that isn't watched.
    const bool hasCome = static_cast<bool>(link.WaitForOneOf({BlobType::PatchLoaded}, 2000));
    threads->Resume();
    EXPECT_TRUE(hasCome || link.WaitForOneOf({BlobType::PatchLoaded}, testTimeout));
}

SUSPENDED_BRIDGE(AThreadInAnotherLibrarysEntryPoint)
{
    SuspendInside();
    Reload(1);
}

SUSPENDED_BRIDGE(AThreadInALogCall)
{
    SuspendInGate();
    // A naive Bridge is answered: a log call owns nothing.
    ASSERT_TRUE(SendReadMemory(link, 4, {words}, 1));
    EXPECT_TRUE(WaitFor<ReadMemoryResultBlob>());
    Reload(1);
}

SUSPENDED_BRIDGE(AThreadInAPush)
{
    SuspendInGate();
    // A naive Bridge isn't answered: every reply needs the queue's lock, and that isn't watched.
    ExpectReplyOnlyOutsideTheAgent();
}

SUSPENDED_BRIDGE(AThreadInAnAllocation)
{
    SuspendInGate();
    // A naive Bridge isn't answered: a reply of the size that the thread is allocating waits for the lock of that pool.
    ExpectReplyOnlyOutsideTheAgent();
}

SUSPENDED_BRIDGE(AThreadInTheConnectionCallback)
{
    SuspendInside();
    // A naive Bridge is answered: the Agent owns nothing while it calls back.
    ASSERT_TRUE(SendEchoRequest(link, 1));
    EXPECT_TRUE(WaitFor<EchoReplyBlob>());
    Reload(1);
}

SUSPENDED_BRIDGE(AThreadInTheWaitForEnabledModules)
{
    const auto enabled = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(enabled);
    ASSERT_TRUE(threads->Suspend());
    EXPECT_EQ(1u, ReadWord(words + offsetof(Words, inside)));
    // A naive Bridge is answered: a waiting thread owns nothing, and its answer is received while it is suspended.
    ASSERT_TRUE(SendDecrementLatch(link, enabled->latch));
    ASSERT_TRUE(SendEchoRequest(link, 1));
    EXPECT_TRUE(WaitFor<EchoReplyBlob>());
    Reload(1);
    // The next call of the resumed thread shows that the first one has returned.
    const auto next = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(next);
    Stop();
    ASSERT_TRUE(SendDecrementLatch(link, next->latch));
}

SUSPENDED_BRIDGE(TwentyThreadsAtRandomAHundredReloads)
{
    for (uint32_t number = 1; number <= 100 && !HasFatalFailure(); ++number)
    {
        AcknowledgeModules(); // threads that have waited since the last round continue, and others wait
        Reload(number);
    }
    Signal("reloaded");
    Stop();
    while (!Await("ended", 10) && !HasFatalFailure()) // the last ones wait as well
    {
        AcknowledgeModules();
    }
}

#endif
