#include "Shared/Process/Windows/Thread.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestInternalAPI.h"
#include "tests/Support/TestMemorySystem.h"
#include "tests/Support/TestThread.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr char testName[] = "Torvane test";
constexpr uint32_t stackSize = 65536;

/// Keeps the naming exceptions that are raised as long as it lives, as a debugger would see them.
class NamingWatch
{
public:
    struct Naming
    {
        DWORD flags;
        DWORD threadId;
        std::vector<ULONG_PTR> arguments;
    };

    /// \param atEach is called whenever an exception is raised.
    explicit NamingWatch(std::function<void()> atEach = [] {})
        : onNaming(std::move(atEach))
        , handler(AddVectoredExceptionHandler(1, Look))
    {
        current = this;
    }

    ~NamingWatch()
    {
        RemoveVectoredExceptionHandler(handler);
    }

    NamingWatch(const NamingWatch&) = delete;
    NamingWatch& operator=(const NamingWatch&) = delete;

    std::vector<Naming> namings; ///< one thread at a time is named meanwhile

private:
    static LONG CALLBACK Look(EXCEPTION_POINTERS* exception)
    {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode == 0x406D1388)
        {
            const ULONG_PTR* arguments = record.ExceptionInformation;
            current->namings.push_back({record.ExceptionFlags,
                                        GetCurrentThreadId(),
                                        {arguments, arguments + record.NumberParameters}});
            current->onNaming();
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static inline NamingWatch* current = nullptr;
    std::function<void()> onNaming;
    void* handler;
};

void ExpectNaming(const NamingWatch::Naming& naming, const char* name, DWORD threadId)
{
    EXPECT_EQ(naming.flags, 0u);
    EXPECT_EQ(naming.threadId, threadId);
    EXPECT_EQ(naming.arguments,
              std::vector<ULONG_PTR>({0x1000, reinterpret_cast<ULONG_PTR>(name), 0xFFFFFFFF, 0}));
}

/// Stands for the OS's function that describes a thread.
struct FakeDescription
{
    static inline std::vector<std::wstring> descriptions;
    static inline HRESULT result = S_OK;

    static HRESULT WINAPI Describe(HANDLE thread, const wchar_t* description)
    {
        EXPECT_EQ(thread, GetCurrentThread());
        descriptions.push_back(description);
        return result;
    }

    static void Install()
    {
        descriptions.clear();
        result = S_OK;
        TestInternalAPI::Get().SetThreadDescription.pointer = &Describe;
    }
};

/// \return what the OS has as the thread's description.
std::wstring GetDescription(HANDLE thread)
{
    using Signature = HRESULT WINAPI(HANDLE thread, wchar_t * *description);
    auto* getDescription =
        reinterpret_cast<Signature*>(FindWindowsFunction("KernelBase.dll", "GetThreadDescription"));
    wchar_t* description = nullptr;
    EXPECT_GE(getDescription(thread, &description), 0);
    const std::wstring result = description;
    LocalFree(description);
    return result;
}

struct TestBlock
{
    const char* name;
    uint32_t result;
    DWORD* threadId;
    uint32_t* seen;
    std::wstring* description;
};

uint32_t Report(TestBlock& block)
{
    *block.threadId = GetCurrentThreadId();
    *block.seen = block.result;
    *block.description = GetDescription(GetCurrentThread());
    return block.result;
}

struct BareBlock
{
    const char* name;
};

uint32_t DoNothing(BareBlock&)
{
    return 0;
}

/// Its thread ends when the gate opens.
struct HeldBlock
{
    const char* name;
    HANDLE gate;
};

uint32_t WaitForGate(HeldBlock& block)
{
    return WaitForSingleObject(block.gate, testTimeout) == WAIT_OBJECT_0 ? 7 : 8;
}

DWORD GetExitCode(HANDLE thread)
{
    EXPECT_EQ(WaitForSingleObject(thread, testTimeout), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    return code;
}

class Threads : public testing::Test
{
protected:
    Threads()
    {
        StartupWindowsInternalAPI();
    }

    TestMemorySystem memory;
    TestInternalAPI internalAPI;
    DWORD threadId = 0;
    uint32_t seen = 0;
    std::wstring description;
    RecordedLog log;

    HANDLE StartReport(uint32_t result)
    {
        return StartThread<TestBlock, Report>(stackSize, {testName, result, &threadId, &seen, &description});
    }
};
} // namespace

TEST(ThreadKinds, HaveTheirNamesAndStackSizes)
{
    const auto expectKind = [](const ThreadKind& kind, const char* name, uint32_t size) {
        EXPECT_STREQ(kind.name, name);
        EXPECT_EQ(kind.stackSize, size) << name;
    };
    expectKind(heartbeatThread, "Torvane heartbeat", 16384);
    expectKind(watchdogThread, "Torvane watchdog", 16384);
    expectKind(senderThread, "Torvane sender", 65536);
    expectKind(receiverThread, "Torvane receiver", 65536);
    expectKind(restartThread, "Torvane restart", 16384);
    expectKind(connectThread, "Torvane connect named pipe", 65536);
    expectKind(drainThread, "Torvane stdout drain", 16384);
}

TEST_F(Threads, ABodyRunsOnAThreadOfItsOwnWithItsBlockAndItsResultIsTheExitCode)
{
    HANDLE thread = StartReport(0xFEDCBA98);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(GetExitCode(thread), 0xFEDCBA98u);
    EXPECT_EQ(seen, 0xFEDCBA98u);
    EXPECT_EQ(threadId, GetThreadId(thread));
    EXPECT_NE(threadId, GetCurrentThreadId());
    WaitForThread(thread);
}

TEST_F(Threads, TheLogHasAPairOfLinesForAThreadWithItsNameAndResult)
{
    HANDLE thread = StartReport(4000000000);
    WaitForThread(thread);
    EXPECT_EQ(log.GetLines(), Lines({"DBG Thread 'Torvane test' started",
                                     "DBG Thread 'Torvane test' exited with result 4000000000"}));
}

TEST_F(Threads, ABodyWithoutAResultReportsZero)
{
    HANDLE thread = StartThread<BareBlock, DoNothing>(stackSize, {"Torvane idle"});
    EXPECT_EQ(GetExitCode(thread), 0u);
    WaitForThread(thread);
    EXPECT_EQ(log.GetLines(),
              Lines({"DBG Thread 'Torvane idle' started", "DBG Thread 'Torvane idle' exited with result 0"}));
}

TEST_F(Threads, ABlockIsCopiedAndFreedAfterItsThread)
{
    const Allocation first = Allocate(sizeof(HeldBlock));
    void* address = first.pointer;
    Free(first.pointer, first.size);

    const HANDLE gate = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE thread = StartThread<HeldBlock, WaitForGate>(stackSize, {testName, gate});
    const Allocation whileItRuns = Allocate(sizeof(HeldBlock));
    EXPECT_NE(whileItRuns.pointer, address);
    Free(whileItRuns.pointer, whileItRuns.size);
    SetEvent(gate);
    EXPECT_EQ(GetExitCode(thread), 7u);
    WaitForThread(thread);
    CloseHandle(gate);

    const Allocation afterIt = Allocate(sizeof(HeldBlock));
    EXPECT_EQ(afterIt.pointer, address);
    Free(afterIt.pointer, afterIt.size);
}

TEST_F(Threads, WaitingEndsWithTheThreadClosesTheHandleAndMakesItInvalid)
{
    const HANDLE gate = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE thread = StartThread<HeldBlock, WaitForGate>(stackSize, {testName, gate});
    const HANDLE started = thread;
    TestThread waiter([&] { WaitForThread(thread); });
    EXPECT_FALSE(waiter.WaitForEnd(quietPeriod));
    SetEvent(gate);
    EXPECT_TRUE(waiter.WaitForEnd());
    EXPECT_EQ(thread, INVALID_HANDLE_VALUE);
    DWORD flags = 0;
    EXPECT_FALSE(GetHandleInformation(started, &flags));
    EXPECT_EQ(log.Count("DBG Thread 'Torvane test' exited with result 7"), 1u);
    CloseHandle(gate);
}

TEST_F(Threads, AThreadIsStartedAtOnceWithItsStackSizeAndItsCopyOfTheBlock)
{
    FakeImport begin("_beginthreadex",
                     [](decltype(&_beginthreadex), void* security, unsigned size,
                        _beginthreadex_proc_type body, void* block, unsigned flags,
                        unsigned* id) -> uintptr_t {
                         EXPECT_EQ(security, nullptr);
                         EXPECT_EQ(size, 16384u);
                         EXPECT_EQ(flags, 0u);
                         EXPECT_EQ(id, nullptr);
                         EXPECT_STREQ(static_cast<BareBlock*>(block)->name, testName);
                         EXPECT_EQ(body(block), 0u);
                         return 0x1234;
                     });
    const HANDLE thread = StartThread<BareBlock, DoNothing>(16384, {testName});
    EXPECT_EQ(thread, reinterpret_cast<HANDLE>(0x1234));
}

TEST_F(Threads, AThreadThatCannotBeCreatedGivesTheHandleZeroAndOneRecordOfTheFailure)
{
    FakeImport begin("_beginthreadex",
                     [](decltype(&_beginthreadex), void*, unsigned, _beginthreadex_proc_type, void*, unsigned,
                        unsigned*) -> uintptr_t {
                         SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                         return 0;
                     });
    EXPECT_EQ(StartReport(1), nullptr);
    EXPECT_EQ(log.GetLines(),
              Lines({"ERR Failed to create thread", OSErrorLine(ERROR_NOT_ENOUGH_MEMORY, "ERR")}));
    EXPECT_EQ(seen, 0u);
}

TEST_F(Threads, AStackThatTheAddressSpaceHasNoRoomForCannotBeCreated)
{
    EXPECT_EQ((StartThread<BareBlock, DoNothing>(0xF0000000, {testName})), nullptr);
    ASSERT_EQ(log.GetLines().size(), 2u);
    EXPECT_EQ(log.GetLines()[0], "ERR Failed to create thread");
    EXPECT_EQ(log.GetLines()[1].rfind("ERR Error: ", 0), 0u);
}

TEST_F(Threads, AThreadCarriesItsNameForDebuggersInBothWays)
{
    NamingWatch watch;
    HANDLE thread = StartReport(0);
    WaitForThread(thread);
    EXPECT_EQ(description, L"Torvane test");
    ASSERT_EQ(watch.namings.size(), 1u);
    ExpectNaming(watch.namings[0], testName, threadId);
}

TEST_F(Threads, AThreadIsNamedOnceItsFirstLineIsLogged)
{
    Lines linesAtNaming;
    NamingWatch watch([&] { linesAtNaming = log.GetLines(); });
    HANDLE thread = StartReport(0);
    WaitForThread(thread);
    EXPECT_EQ(linesAtNaming, Lines({"DBG Thread 'Torvane test' started"}));
}

TEST_F(Threads, TheNamingExceptionNeitherEndsAThreadNorShowsInTheLog)
{
    NamingWatch watch;
    FakeDescription::Install();
    SetCurrentThreadName(testName);
    ASSERT_EQ(watch.namings.size(), 1u);
    ExpectNaming(watch.namings[0], testName, GetCurrentThreadId());
    EXPECT_EQ(FakeDescription::descriptions, std::vector<std::wstring>({L"Torvane test"}));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(Threads, TheNameIsGivenToTheOSBeforeTheExceptionIsRaised)
{
    FakeDescription::Install();
    size_t described = 0;
    NamingWatch watch([&described] { described = FakeDescription::descriptions.size(); });
    SetCurrentThreadName(testName);
    EXPECT_EQ(watch.namings.size(), 1u);
    EXPECT_EQ(described, 1u);
}

TEST_F(Threads, WithoutTheOSsFunctionAThreadRunsAllTheSameAndTheExceptionIsRaised)
{
    TestInternalAPI::Get().SetThreadDescription.pointer = nullptr;
    NamingWatch watch;
    HANDLE thread = StartReport(5);
    EXPECT_EQ(GetExitCode(thread), 5u);
    WaitForThread(thread);
    ASSERT_EQ(watch.namings.size(), 1u);
    ExpectNaming(watch.namings[0], testName, threadId);
    EXPECT_EQ(description, L"");
    EXPECT_EQ(log.GetLines(),
              Lines({"DBG Thread 'Torvane test' started", "DBG Thread 'Torvane test' exited with result 5"}));
}

TEST_F(Threads, AFailureOfTheOSsFunctionIsLoggedAndTheExceptionIsRaised)
{
    FakeDescription::Install();
    FakeDescription::result = E_ACCESSDENIED;
    NamingWatch watch;
    SetCurrentThreadName(testName);
    EXPECT_EQ(watch.namings.size(), 1u);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Call to function SetThreadDescription failed. Error: 0x80070005"}));
}

TEST_F(Threads, ResultsOfTheOSsFunctionThatAreNotNegativeAreNoFailures)
{
    FakeDescription::Install();
    FakeDescription::result = 0x10000000; // what a native success is turned into
    SetCurrentThreadName(testName);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(Threads, NamingAThreadGivesTheWideTextBack)
{
    FakeDescription::Install();
    const uint32_t bytes = sizeof(testName) * sizeof(wchar_t);
    const Allocation earlier = Allocate(bytes);
    void* address = earlier.pointer;
    Free(earlier.pointer, earlier.size);
    SetCurrentThreadName(testName);
    const Allocation later = Allocate(bytes);
    EXPECT_EQ(later.pointer, address);
    Free(later.pointer, later.size);
}
} // namespace Torvane::Testing
