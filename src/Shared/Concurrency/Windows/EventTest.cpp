#include "Shared/Concurrency/Windows/Event.h"

#include "tests/Support/FakeWait.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestThread.h"

#include <atomic>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr const char* abandonedLine =
    "ERR Wait() was called on a stale event which was not released by the owning thread";

class EventTest : public testing::Test
{
protected:
    ~EventTest() override
    {
        event.Destroy();
    }

    RecordedLog log;
    Event event = {Event::Create("Test").payload};
};

/// A mutex whose owning thread has ended; the first wait for it reports so.
HANDLE CreateAbandonedMutex()
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    const TestThread owner([mutex] { EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0); });
    EXPECT_TRUE(owner.WaitForEnd());
    return mutex;
}
} // namespace

// Creation and signals

TEST(Event, IsMadeForManualResetUnsignalledAndWithoutAName)
{
    const RecordedLog log;
    uint32_t calls = 0;
    const FakeImport create("CreateEventW",
                            [&](decltype(&CreateEventW) real, LPSECURITY_ATTRIBUTES attributes,
                                BOOL manualReset, BOOL signalled, LPCWSTR name) {
                                ++calls;
                                EXPECT_EQ(attributes, nullptr);
                                EXPECT_TRUE(manualReset);
                                EXPECT_FALSE(signalled);
                                EXPECT_EQ(name, nullptr);
                                return real(attributes, manualReset, signalled, name);
                            });
    const Result<HANDLE> result = Event::Create("Test");
    EXPECT_EQ(calls, 1u);
    EXPECT_EQ(result.error, nullptr);
    EXPECT_NE(result.payload, nullptr);
    EXPECT_EQ(log.GetLines(), Lines());
    CloseHandle(result.payload);
}

TEST(Event, ReportsWhichOneCouldNotBeCreated)
{
    const RecordedLog log;
    const FakeImport create(
        "CreateEventW", [](decltype(&CreateEventW), LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
            SetLastError(0x7FFFFF11);
            return nullptr;
        });
    const Result<HANDLE> result = Event::Create("Test");
    EXPECT_STREQ(result.error, "CreateEventW(%hs) failed.");
    EXPECT_EQ(result.code, 0x7FFFFF11u);
    EXPECT_EQ(log.GetLines(),
              (Lines{"DBG CreateEventW(Test) failed.", "DBG Error: 2147483409, 0x7FFFFF11: unknown"}));
}

TEST_F(EventTest, StaysSignalledUntilItIsReset)
{
    EXPECT_FALSE(event.TryWait());
    event.Signal();
    EXPECT_TRUE(event.TryWait());
    EXPECT_TRUE(event.TryWait());
    EXPECT_TRUE(event.Wait(1000));
    EXPECT_TRUE(event.Wait());
    event.Signal();
    event.Reset();
    EXPECT_FALSE(event.TryWait());
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(Event, LogsNothingForASignalThatFails)
{
    const RecordedLog log;
    Event event = {nullptr};
    event.Signal();
    event.Reset();
    event.Destroy();
    EXPECT_EQ(event.handle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(EventTest, ReleasesAllThreadsThatWait)
{
    std::atomic<uint32_t> waiting = 0;
    std::atomic<uint32_t> released = 0;
    const auto body = [&] {
        ++waiting;
        released += event.Wait() ? 1 : 0;
    };
    {
        const TestThread first(body);
        const TestThread second(body);
        const TestThread third(body);
        EXPECT_TRUE(WaitUntil([&] { return waiting == 3; }));
        EXPECT_FALSE(first.WaitForEnd(quietPeriod));
        event.Signal();
    }
    EXPECT_EQ(released, 3u);
}

TEST_F(EventTest, HoldsTheInvalidHandleAfterItsDestruction)
{
    const HANDLE handle = event.handle;
    event.Destroy();
    EXPECT_EQ(event.handle, INVALID_HANDLE_VALUE);
    DWORD information = 0;
    EXPECT_FALSE(GetHandleInformation(handle, &information));
    event.handle = Event::Create("Test").payload;
}

// What each wait result means

TEST_F(EventTest, WaitsAsLongAsSpecified)
{
    const FakeWait wait(event.handle, WAIT_OBJECT_0);
    EXPECT_TRUE(event.Wait());
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.Wait(4711));
    EXPECT_TRUE(event.TryWait());
    EXPECT_EQ(wait.GetTimeOuts(), (std::vector<DWORD>{INFINITE, 0, 4711, 0}));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(EventTest, LogsNothingForATryThatFindsItUnsignalled)
{
    EXPECT_FALSE(event.TryWait());
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(EventTest, LogsNothingForAFiniteTimeOut)
{
    EXPECT_FALSE(event.Wait(1));
    EXPECT_FALSE(event.Wait(0));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(EventTest, LogsNothingForALongFiniteTimeOut)
{
    const FakeWait wait(event.handle, WAIT_TIMEOUT);
    EXPECT_FALSE(event.Wait(INFINITE - 1));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(EventTest, ReportsTheTimeOutOfAWaitThatHasNone)
{
    const FakeWait wait(event.handle, WAIT_TIMEOUT);
    EXPECT_FALSE(event.Wait());
    EXPECT_EQ(log.GetLines(), Lines{"ERR Event timed out"});
    EXPECT_FALSE(event.Wait(INFINITE));
    EXPECT_EQ(log.Count("ERR Event timed out"), 2u);
}

TEST(Event, ReportsAnOwnerThatIsGone)
{
    const RecordedLog log;
    Event event = {CreateAbandonedMutex()};
    EXPECT_FALSE(event.Wait());
    EXPECT_EQ(log.GetLines(), Lines{abandonedLine});
    event.Destroy();
    event.handle = CreateAbandonedMutex();
    EXPECT_FALSE(event.Wait(1000));
    EXPECT_EQ(log.Count(abandonedLine), 2u);
    event.Destroy();
    event.handle = CreateAbandonedMutex();
    EXPECT_FALSE(event.TryWait());
    EXPECT_EQ(log.GetLines(), (Lines{abandonedLine, abandonedLine, abandonedLine}));
    event.Destroy();
}

TEST(Event, ReportsAWaitWithoutAHandle)
{
    const RecordedLog log;
    Event event = {nullptr};
    EXPECT_FALSE(event.Wait());
    EXPECT_FALSE(event.Wait(1000));
    EXPECT_FALSE(event.TryWait());
    EXPECT_EQ(log.GetLines(), Lines(3, "ERR Failed to Wait() on an event"));
}

TEST(Event, ReportsAWaitForAnEventThatIsGone)
{
    const RecordedLog log;
    const HANDLE closed = Event::Create("Test").payload;
    CloseHandle(closed);
    Event event = {closed};
    EXPECT_FALSE(event.Wait(1000));
    EXPECT_EQ(log.GetLines(), Lines{"ERR Failed to Wait() on an event"});
}

TEST_F(EventTest, LogsNothingForAResultThatIsUnknown)
{
    const FakeWait wait(event.handle, WAIT_IO_COMPLETION);
    EXPECT_FALSE(event.Wait());
    EXPECT_FALSE(event.Wait(1000));
    EXPECT_FALSE(event.TryWait());
    EXPECT_EQ(log.GetLines(), Lines());
}
} // namespace Torvane::Testing
