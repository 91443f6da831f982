#include "Shared/Concurrency/Latch.h"

#include "tests/Support/FakeWait.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestThread.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;
}

TEST(Latch, HasACountAndAnEventThatIsNotSignalled)
{
    const RecordedLog log;
    Latch latch(3);
    EXPECT_EQ(latch.count, 3);
    EXPECT_FALSE(latch.event.TryWait());
    latch.event.Destroy();
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(Latch, PanicsWithoutAnEventAndKeepsTheErrorInItsPlace)
{
    const RecordedLog log;
    const FakeImport create(
        "CreateEventW", [](decltype(&CreateEventW), LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
            SetLastError(0x7FFFFF11);
            return nullptr;
        });
    const Latch latch(1);
    EXPECT_EQ(log.GetLines(),
              (Lines{"DBG CreateEventW(Latch) failed.", "DBG Error: 2147483409, 0x7FFFFF11: unknown",
                     "PNC Cannot create event for latch"}));
    EXPECT_EQ(latch.event.handle, reinterpret_cast<HANDLE>(0x7FFFFF11));
}

TEST(Latch, WaitsWithoutALimitForItsEvent)
{
    const RecordedLog log;
    Latch latch(1);
    {
        const FakeWait wait(latch.event.handle, WAIT_OBJECT_0);
        latch.Wait();
        EXPECT_EQ(wait.GetTimeOuts(), std::vector<DWORD>{INFINITE});
    }
    const TestThread waiting([&] { latch.Wait(); });
    EXPECT_FALSE(waiting.WaitForEnd(quietPeriod));
    latch.event.Signal();
    EXPECT_TRUE(waiting.WaitForEnd());
    EXPECT_EQ(log.GetLines(), Lines());
    latch.event.Destroy();
}

TEST(Latch, ReportsAWaitThatFails)
{
    const RecordedLog log;
    Latch latch(1);
    latch.event.Destroy();
    latch.event.handle = nullptr;
    latch.Wait();
    EXPECT_EQ(log.GetLines(),
              (Lines{"ERR Failed to Wait() on an event", "ERR Could not wait for event in latch"}));
}

TEST(Latch, ReportsAWaitThatTimesOut)
{
    const RecordedLog log;
    Latch latch(1);
    {
        const FakeWait wait(latch.event.handle, WAIT_TIMEOUT);
        latch.Wait();
    }
    EXPECT_EQ(log.GetLines(), (Lines{"ERR Event timed out", "ERR Could not wait for event in latch"}));
    latch.event.Destroy();
}
} // namespace Torvane::Testing
