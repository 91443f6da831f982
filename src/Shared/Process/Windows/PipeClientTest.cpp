#include "Shared/Process/Windows/PipeClient.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/OSErrorLine.h"
#include "tests/Support/OperatingSystem.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestMemorySystem.h"
#include "tests/Support/TestThread.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr char connectFailure[] = "ConnectNamedPipe failed.";
constexpr char startLine[] = "DBG Thread 'Torvane connect named pipe' started";
constexpr char endLine[] = "DBG Thread 'Torvane connect named pipe' exited with result 0";

Lines Sorted(Lines lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

Lines FailureLines(DWORD code)
{
    return {"DBG ConnectNamedPipe failed.", OSErrorLine(code)};
}

Lines Join(const Lines& left, const Lines& right)
{
    Lines lines = left;
    lines.insert(lines.end(), right.begin(), right.end());
    return lines;
}

/// Connects to a pipe if it isn't destroyed within `testTimeout`: a wait that nothing else ends is a failure of the test
/// then, and not its end.
class LastResort
{
public:
    explicit LastResort(const std::wstring& pipeName)
        : name(pipeName)
    {
    }

    ~LastResort()
    {
        SetEvent(over);
        thread.WaitForEnd();
        CloseHandle(over);
    }

    LastResort(const LastResort&) = delete;
    LastResort& operator=(const LastResort&) = delete;

private:
    std::wstring name;
    HANDLE over = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    TestThread thread{[this] {
        if (WaitForSingleObject(over, testTimeout) == WAIT_TIMEOUT)
        {
            ADD_FAILURE() << "The wait has not been cancelled.";
            CloseHandle(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                    nullptr));
        }
    }};
};

/// A pipe, and the clients that connect to it.
class PipeClient : public testing::Test
{
protected:
    PipeClient()
        : pipe(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 4096, 4096,
                                0, nullptr))
    {
        EXPECT_NE(pipe, INVALID_HANDLE_VALUE);
    }

    ~PipeClient() override
    {
        for (const HANDLE client : clients)
        {
            CloseHandle(client);
        }
        CloseHandle(pipe);
    }

    void ConnectClient()
    {
        const HANDLE client =
            CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(client, INVALID_HANDLE_VALUE);
        clients.push_back(client);
    }

    void DisconnectClient()
    {
        CloseHandle(clients.back());
        clients.pop_back();
    }

    /// The watcher's lines and those of the waiting thread are written at once, so their order is open.
    void ExpectLines(const Lines& lines) const
    {
        EXPECT_EQ(Sorted(log.GetLines()), Sorted(Join({startLine, endLine}, lines)));
    }

    TestMemorySystem memory;
    std::wstring name = L"\\\\.\\pipe\\TVN_UnitTest_" + std::to_wstring(GetCurrentProcessId());
    HANDLE pipe;
    std::vector<HANDLE> clients;
    RecordedLog log;
    LastResort lastResort{name};
};

/// Tells when a connect is about to block; cancels a call that has begun, however early the cancel comes: the OS's
/// function does nothing before that, so it is repeated. Each cancel of the product's is noted once.
struct FakeConnect
{
    struct Connect
    {
        FakeConnect& fake;

        BOOL operator()(decltype(&ConnectNamedPipe) real, HANDLE pipe, LPOVERLAPPED overlapped) const
        {
            EXPECT_EQ(overlapped, nullptr);
            fake.threadId = GetCurrentThreadId();
            InterlockedExchange(&fake.begun, 1);
            return real(pipe, overlapped);
        }
    };

    struct Cancel
    {
        FakeConnect& fake;

        BOOL operator()(decltype(&CancelSynchronousIo) real, HANDLE thread) const
        {
            fake.cancelled.push_back(thread);
            fake.cancelledThreadId = GetThreadId(thread);
            InterlockedIncrement(&fake.cancels);
            return WaitUntil([&] { return real(thread) || GetLastError() != ERROR_NOT_FOUND; });
        }
    };

    static bool WaitFor(LONG& flag)
    {
        return WaitUntil([&] { return InterlockedCompareExchange(&flag, 0, 0) != 0; });
    }

    LONG begun = 0;
    LONG cancels = 0;
    DWORD threadId = 0;
    std::vector<HANDLE> cancelled;
    DWORD cancelledThreadId = 0;
    FakeImport<Connect> connect{"ConnectNamedPipe", Connect{*this}};
    FakeImport<Cancel> cancel{"CancelSynchronousIo", Cancel{*this}};
};

bool IsOpen(HANDLE handle)
{
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != 0;
}
} // namespace

TEST_F(PipeClient, AClientThatConnectedBeforeTheCallIsASuccess)
{
    DWORD error = 0;
    FakeImport connect("ConnectNamedPipe",
                       [&](decltype(&ConnectNamedPipe) real, HANDLE server, LPOVERLAPPED overlapped) -> BOOL {
                           const BOOL connected = real(server, overlapped);
                           EXPECT_FALSE(connected);
                           error = GetLastError();
                           return connected;
                       });
    ConnectClient();
    const Result<bool> result = WaitForPipeClient(pipe, testTimeout);
    EXPECT_EQ(result.error, nullptr);
    EXPECT_TRUE(result.payload);
    EXPECT_EQ(error, 535u);
    ExpectLines({});
}

TEST_F(PipeClient, AClientThatComesMeanwhileEndsTheWaitAndTheWatcher)
{
    FakeConnect fake;
    Result<bool> result = Failure{"still waiting", 0};
    TestThread server([&] { result = WaitForPipeClient(pipe, testTimeout); });
    ASSERT_TRUE(FakeConnect::WaitFor(fake.begun));
    EXPECT_FALSE(server.WaitForEnd(quietPeriod));
    ConnectClient();
    ASSERT_TRUE(server.WaitForEnd());
    EXPECT_EQ(result.error, nullptr);
    EXPECT_TRUE(result.payload);
    EXPECT_TRUE(fake.cancelled.empty());
    ExpectLines({});
}

TEST_F(PipeClient, TheConnectedPipeCarriesBytes)
{
    ConnectClient();
    ASSERT_EQ(WaitForPipeClient(pipe, testTimeout).error, nullptr);
    DWORD count = 0;
    EXPECT_TRUE(WriteFile(clients[0], "ping", 4, &count, nullptr));
    char bytes[8] = {};
    EXPECT_TRUE(ReadFile(pipe, bytes, sizeof(bytes), &count, nullptr));
    EXPECT_EQ(std::string(bytes, count), "ping");
}

TEST_F(PipeClient, WithoutAClientTheWaitFailsAfterItsTimeOut)
{
    FakeConnect fake;
    const Result<bool> result = WaitForPipeClient(pipe, 30);
    ASSERT_NE(result.error, nullptr);
    EXPECT_STREQ(result.error, connectFailure);
    EXPECT_EQ(result.code, 995u);
    ExpectLines(FailureLines(995));
    EXPECT_EQ(fake.threadId, GetCurrentThreadId());
    EXPECT_EQ(fake.cancelledThreadId, GetCurrentThreadId());
    ASSERT_EQ(fake.cancelled.size(), 1u);
    EXPECT_FALSE(IsOpen(fake.cancelled[0]));
}

TEST_F(PipeClient, ATimeOutOfZeroCancelsTheWait)
{
    FakeConnect fake;
    const Result<bool> result = WaitForPipeClient(pipe, 0);
    EXPECT_STREQ(result.error, connectFailure);
    EXPECT_EQ(result.code, 995u);
    EXPECT_EQ(fake.cancels, 1);
    ExpectLines(FailureLines(995));
}

TEST_F(PipeClient, OneCancelByTheOSEndsAWaitThatHasBegun)
{
    constexpr uint32_t timeOut = 1000; // in which the wait begins
    constexpr uint32_t clockStep = 16;
    uint32_t cancels = 0;
    FakeImport cancel("CancelSynchronousIo", [&](decltype(&CancelSynchronousIo) real, HANDLE thread) -> BOOL {
        ++cancels;
        return real(thread);
    });
    const ULONGLONG begin = GetTickCount64();
    const Result<bool> result = WaitForPipeClient(pipe, timeOut);
    EXPECT_GE(GetTickCount64() - begin, timeOut - clockStep);
    EXPECT_STREQ(result.error, connectFailure);
    EXPECT_EQ(result.code, 995u);
    EXPECT_EQ(cancels, 1u);
    ExpectLines(FailureLines(995));
}

TEST_F(PipeClient, ATimeOutOfZeroIsASuccessIfAClientIsThere)
{
    ConnectClient();
    const Result<bool> result = WaitForPipeClient(pipe, 0);
    EXPECT_EQ(result.error, nullptr);
    EXPECT_TRUE(result.payload);
    ExpectLines({});
}

TEST_F(PipeClient, APipeCanBeWaitedForAgainAfterATimeOut)
{
    {
        FakeConnect fake;
        EXPECT_EQ(WaitForPipeClient(pipe, 0).code, 995u);
        EXPECT_EQ(fake.cancels, 1);
    }
    ConnectClient();
    EXPECT_EQ(WaitForPipeClient(pipe, testTimeout).error, nullptr);
}

TEST_F(PipeClient, AClientThatHasClosedAlreadyIsAFailure)
{
    ConnectClient();
    DisconnectClient();
    const Result<bool> result = WaitForPipeClient(pipe, testTimeout);
    EXPECT_STREQ(result.error, connectFailure);
    EXPECT_EQ(result.code, closedPipeError);
    ExpectLines(FailureLines(closedPipeError));
}

TEST_F(PipeClient, AHandleThatIsNoPipeIsAFailure)
{
    const Result<bool> result = WaitForPipeClient(reinterpret_cast<HANDLE>(0xABCDE0), testTimeout);
    EXPECT_STREQ(result.error, connectFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    ExpectLines(FailureLines(ERROR_INVALID_HANDLE));
}

TEST_F(PipeClient, TheFailureIsTheOneOfTheConnectWhateverTheSignalLeaves)
{
    FakeImport connect("ConnectNamedPipe", [](decltype(&ConnectNamedPipe), HANDLE, LPOVERLAPPED) -> BOOL {
        SetLastError(ERROR_BAD_PIPE);
        return FALSE;
    });
    FakeImport signal("SetEvent", [](decltype(&SetEvent) real, HANDLE event) -> BOOL {
        const BOOL signalled = real(event);
        SetLastError(ERROR_PIPE_CONNECTED);
        return signalled;
    });
    const Result<bool> result = WaitForPipeClient(pipe, testTimeout);
    EXPECT_STREQ(result.error, connectFailure);
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_BAD_PIPE));
    ExpectLines(FailureLines(ERROR_BAD_PIPE));
}

TEST_F(PipeClient, WithoutAHandleOfTheWaitingThreadThereIsNoCancel)
{
    FakeConnect fake;
    DWORD waitingThreadId = 0;
    FakeImport open("OpenThread",
                    [&](decltype(&OpenThread), DWORD access, BOOL inherited, DWORD id) -> HANDLE {
                        EXPECT_EQ(access, 0x1FFFFFu);
                        EXPECT_FALSE(inherited);
                        waitingThreadId = id;
                        SetLastError(ERROR_ACCESS_DENIED);
                        return nullptr;
                    });
    Result<bool> result = Failure{"still waiting", 0};
    TestThread server([&] { result = WaitForPipeClient(pipe, 0); });
    ASSERT_TRUE(FakeConnect::WaitFor(fake.begun));
    ASSERT_TRUE(FakeConnect::WaitFor(fake.cancels));
    EXPECT_FALSE(server.WaitForEnd(quietPeriod));
    ConnectClient();
    ASSERT_TRUE(server.WaitForEnd());
    EXPECT_EQ(result.error, nullptr);
    EXPECT_TRUE(result.payload);
    EXPECT_EQ(waitingThreadId, fake.threadId);
    EXPECT_EQ(fake.cancelled, std::vector<HANDLE>({INVALID_HANDLE_VALUE}));
    ExpectLines(
        {LogLine("ERR Failed to open thread %u", waitingThreadId), OSErrorLine(ERROR_ACCESS_DENIED, "ERR")});
}

TEST_F(PipeClient, WithoutAnEventTheWaitPanicsAndContinues)
{
    constexpr DWORD code = 0x2000F00F; // no handle, either
    FakeImport create("CreateEventW",
                      [](decltype(&CreateEventW), LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
                          SetLastError(code);
                          return nullptr;
                      });
    ConnectClient();
    const Result<bool> result = WaitForPipeClient(pipe, testTimeout);
    EXPECT_EQ(result.error, nullptr);
    EXPECT_TRUE(result.payload);
    ASSERT_GE(log.GetLines().size(), 3u);
    const Lines first(log.GetLines().begin(), log.GetLines().begin() + 3);
    EXPECT_EQ(first, Lines({"DBG CreateEventW(ConnectNamedPipe finished) failed.", OSErrorLine(code),
                            "PNC Cannot create event for connecting named pipe"}));
    EXPECT_EQ(log.Count("ERR Failed to Wait() on an event"), 1u);
}

TEST_F(PipeClient, TheWatcherWaitsForTheEndOfTheConnectAsLongAsTheTimeOutSays)
{
    HANDLE event = nullptr;
    std::vector<DWORD> timeOuts;
    FakeImport create("CreateEventW",
                      [&](decltype(&CreateEventW) real, LPSECURITY_ATTRIBUTES security, BOOL manual,
                          BOOL signalled, LPCWSTR eventName) -> HANDLE {
                          event = real(security, manual, signalled, eventName);
                          return event;
                      });
    FakeImport wait("WaitForSingleObject",
                    [&](decltype(&WaitForSingleObject) real, HANDLE object, DWORD milliseconds) -> DWORD {
                        if (object == event)
                        {
                            timeOuts.push_back(milliseconds);
                        }
                        return real(object, milliseconds);
                    });
    ConnectClient();
    for (const uint32_t milliseconds : {23456u, 0x7FFFFFFFu})
    {
        WaitForPipeClient(pipe, milliseconds);
    }
    EXPECT_EQ(timeOuts, std::vector<DWORD>({23456, 0x7FFFFFFF}));
}

TEST_F(PipeClient, AFailureIsSignalledAndThenReportedAndThenTheWatcherIsWaitedFor)
{
    const DWORD caller = GetCurrentThreadId();
    Lines steps;
    const auto note = [&](const std::string& step) {
        if (GetCurrentThreadId() == caller)
        {
            steps.push_back(step);
        }
    };
    const RecordedLog noted([&] { note("line"); });
    HANDLE watcher = nullptr;
    FakeImport connect("ConnectNamedPipe", [](decltype(&ConnectNamedPipe), HANDLE, LPOVERLAPPED) -> BOOL {
        SetLastError(ERROR_BAD_PIPE);
        return FALSE;
    });
    FakeImport begin("_beginthreadex",
                     [&](decltype(&_beginthreadex) real, void* security, unsigned size,
                         _beginthreadex_proc_type body, void* block, unsigned flags,
                         unsigned* id) -> uintptr_t {
                         const uintptr_t started = real(security, size, body, block, flags, id);
                         watcher = reinterpret_cast<HANDLE>(started);
                         return started;
                     });
    FakeImport signal("SetEvent", [&](decltype(&SetEvent) real, HANDLE event) -> BOOL {
        note("signal");
        return real(event);
    });
    FakeImport wait("WaitForSingleObject",
                    [&](decltype(&WaitForSingleObject) real, HANDLE object, DWORD milliseconds) -> DWORD {
                        if (object == watcher)
                        {
                            note("wait " + std::to_string(milliseconds));
                        }
                        return real(object, milliseconds);
                    });
    FakeImport close("CloseHandle", [&](decltype(&CloseHandle) real, HANDLE handle) -> BOOL {
        note(handle == watcher ? "close the watcher" : "close the event");
        return real(handle);
    });
    EXPECT_STREQ(WaitForPipeClient(pipe, testTimeout).error, connectFailure);
    EXPECT_EQ(steps,
              Lines({"signal", "line", "line", "wait 4294967295", "close the watcher", "close the event"}));
}

TEST_F(PipeClient, TheEventAndTheWatcherAreClosedWhenTheWaitEnds)
{
    HANDLE event = nullptr;
    HANDLE thread = nullptr;
    FakeImport create("CreateEventW",
                      [&](decltype(&CreateEventW) real, LPSECURITY_ATTRIBUTES security, BOOL manual,
                          BOOL signalled, LPCWSTR eventName) -> HANDLE {
                          EXPECT_TRUE(manual);
                          EXPECT_FALSE(signalled);
                          event = real(security, manual, signalled, eventName);
                          return event;
                      });
    FakeImport begin("_beginthreadex",
                     [&](decltype(&_beginthreadex) real, void* security, unsigned size,
                         _beginthreadex_proc_type body, void* block, unsigned flags,
                         unsigned* id) -> uintptr_t {
                         EXPECT_EQ(size, 65536u);
                         const uintptr_t started = real(security, size, body, block, flags, id);
                         thread = reinterpret_cast<HANDLE>(started);
                         return started;
                     });
    ConnectClient();
    EXPECT_EQ(WaitForPipeClient(pipe, testTimeout).error, nullptr);
    ASSERT_NE(event, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_FALSE(IsOpen(event));
    EXPECT_FALSE(IsOpen(thread));
}
} // namespace Torvane::Testing
