#include "Shared/Concurrency/Windows/Semaphore.h"

#include "tests/Support/FakeWait.h"
#include "tests/Support/OSErrorLine.h"
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

class SemaphoreTest : public testing::Test
{
protected:
    ~SemaphoreTest() override
    {
        CloseHandle(semaphore);
    }

    RecordedLog log;
    HANDLE semaphore = CreateSemaphoreObject(2, 3, "Test").payload;
};

struct FailedWait
{
    DWORD code;
    const char* text;
    const char* codeLine;
};

constexpr FailedWait failedWaits[] = {
    {WAIT_ABANDONED,
     "WaitForSingleObject() was called on a stale semaphore which was not released by the owning thread.",
     "DBG Error: 128, 0x80"},
    {WAIT_TIMEOUT, "Semaphore timed out.", "DBG Error: 258, 0x102"},
    {WAIT_FAILED, "Failed to wait on an semaphore.", "DBG Error: -1, 0xFFFFFFFF"},
};
} // namespace

// Creation and signals

TEST(Semaphore, IsMadeWithItsCountsAndWithoutAName)
{
    const RecordedLog log;
    uint32_t calls = 0;
    const FakeImport create("CreateSemaphoreW",
                            [&](decltype(&CreateSemaphoreW) real, LPSECURITY_ATTRIBUTES attributes,
                                LONG initial, LONG maximum, LPCWSTR name) {
                                ++calls;
                                EXPECT_EQ(attributes, nullptr);
                                EXPECT_EQ(initial, 3);
                                EXPECT_EQ(maximum, 7);
                                EXPECT_EQ(name, nullptr);
                                return real(attributes, initial, maximum, name);
                            });
    const Result<HANDLE> result = CreateSemaphoreObject(3, 7, "Test");
    EXPECT_EQ(calls, 1u);
    EXPECT_EQ(result.error, nullptr);
    CloseHandle(result.payload);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(Semaphore, ReportsWhichOneCouldNotBeCreated)
{
    const RecordedLog log;
    const Result<HANDLE> result = CreateSemaphoreObject(2, 1, "Test"); // more than its maximum
    EXPECT_STREQ(result.error, "CreateSemaphoreW(%hs) failed.");
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(log.GetLines(),
              (Lines{"DBG CreateSemaphoreW(Test) failed.", OSErrorLine(ERROR_INVALID_PARAMETER)}));
}

TEST_F(SemaphoreTest, CountsWaitsAndSignals)
{
    for (uint32_t i = 0; i < 2; ++i)
    {
        const Result<bool> result = WaitForSemaphore(semaphore);
        EXPECT_EQ(result.error, nullptr);
        EXPECT_TRUE(result.payload);
    }
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    for (uint32_t i = 0; i < 3; ++i)
    {
        const Result<bool> result = SignalSemaphore(semaphore);
        EXPECT_EQ(result.error, nullptr);
        EXPECT_TRUE(result.payload);
    }
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(SemaphoreTest, WaitsUntilASignal)
{
    WaitForSemaphore(semaphore);
    WaitForSemaphore(semaphore);
    std::atomic<bool> acquired = false;
    const TestThread waiting([&] { acquired = WaitForSemaphore(semaphore).payload; });
    EXPECT_FALSE(waiting.WaitForEnd(quietPeriod));
    SignalSemaphore(semaphore);
    EXPECT_TRUE(waiting.WaitForEnd());
    EXPECT_TRUE(acquired);
}

TEST_F(SemaphoreTest, ReportsASignalBeyondItsMaximum)
{
    SignalSemaphore(semaphore);
    const Result<bool> result = SignalSemaphore(semaphore);
    EXPECT_STREQ(result.error, "ReleaseSemaphore() failed.");
    EXPECT_EQ(result.code, static_cast<uint32_t>(ERROR_TOO_MANY_POSTS));
    EXPECT_EQ(log.GetLines(), (Lines{"DBG ReleaseSemaphore() failed.", OSErrorLine(ERROR_TOO_MANY_POSTS)}));
}

TEST_F(SemaphoreTest, SignalsByOne)
{
    const FakeImport release("ReleaseSemaphore", [this](decltype(&ReleaseSemaphore) real, HANDLE object,
                                                        LONG count, LPLONG before) {
        EXPECT_EQ(object, semaphore);
        EXPECT_EQ(count, 1);
        return real(object, count, before);
    });
    EXPECT_EQ(SignalSemaphore(semaphore).error, nullptr);
}

// What each wait result means

TEST_F(SemaphoreTest, WaitsWithoutALimit)
{
    const FakeWait wait(semaphore, WAIT_OBJECT_0);
    EXPECT_TRUE(WaitForSemaphore(semaphore).payload);
    EXPECT_EQ(wait.GetTimeOuts(), std::vector<DWORD>{INFINITE});
}

TEST_F(SemaphoreTest, FailsWithTheCodeAndTheWordsOfTheWait)
{
    for (const FailedWait& failed : failedWaits)
    {
        SCOPED_TRACE(failed.text);
        log.Clear();
        const FakeWait wait(semaphore, failed.code);
        const Result<bool> result = WaitForSemaphore(semaphore);
        EXPECT_STREQ(result.error, failed.text);
        EXPECT_EQ(result.code, failed.code);
        EXPECT_EQ(log.GetLines(), (Lines{std::string("DBG ") + failed.text, failed.codeLine}));
    }
}

TEST_F(SemaphoreTest, SucceedsWithoutAValueAfterAResultThatIsUnknown)
{
    const FakeWait wait(semaphore, WAIT_IO_COMPLETION);
    const Result<bool> result = WaitForSemaphore(semaphore);
    EXPECT_EQ(result.error, nullptr);
    EXPECT_FALSE(result.payload);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST(Semaphore, FailsWithoutAHandle)
{
    const RecordedLog log;
    const Result<bool> wait = WaitForSemaphore(nullptr);
    EXPECT_STREQ(wait.error, "Failed to wait on an semaphore.");
    EXPECT_EQ(wait.code, 0xFFFFFFFFu);
    const Result<bool> signal = SignalSemaphore(nullptr);
    EXPECT_STREQ(signal.error, "ReleaseSemaphore() failed.");
    EXPECT_EQ(signal.code, static_cast<uint32_t>(ERROR_INVALID_HANDLE));
}

TEST(Semaphore, FailsForAMutexOfAThreadThatIsGone)
{
    const RecordedLog log;
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    {
        const TestThread owner([mutex] { EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0); });
    }
    const Result<bool> result = WaitForSemaphore(mutex);
    EXPECT_EQ(result.code, static_cast<uint32_t>(WAIT_ABANDONED));
    EXPECT_NE(result.error, nullptr);
    CloseHandle(mutex);
}
} // namespace Torvane::Testing
