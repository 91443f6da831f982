#include "tests/Support/Integration/IntegrationTest.h"
#include "tests/Support/TestThread.h"

#include <windows.h>

// Guarded loads: quick ones, hanging ones, failing ones, and a shutdown in each state of the watchdog.

namespace
{
constexpr uint32_t watchdogLimit = 500; // milliseconds
} // namespace

#if TORVANE_HOST_HALF

namespace
{
constexpr char hangLine[] = "Possible hang detected while loading patch code, resuming held threads";

std::wstring SlowLibrary()
{
    return ExecutableFolder() + L"\\images\\SlowLoad.dll";
}

void SetLoad(uint32_t milliseconds, bool fails)
{
    SetEnvironmentVariableA("TORVANE_TEST_LOAD_TIME", std::to_string(milliseconds).c_str());
    SetEnvironmentVariableA("TORVANE_TEST_LOAD_FAILS", fails ? "1" : "0");
}

/// Seconds from the record of one message to the next one of another, by the log's own clock.
double TimeBetween(const std::vector<LogRecord>& log, const std::string& from, const std::string& to)
{
    double begin = -1;
    for (const LogRecord& record : log)
    {
        if (record.message == from)
        {
            begin = record.time;
        }
        else if (record.message == to && begin >= 0)
        {
            return record.time - begin;
        }
    }
    return -1;
}
} // namespace

#define WATCHDOG_TEST_OF_ONE_LOAD(Name, milliseconds, fails) \
    HOST_TEST(Watchdog, Name)                                \
    {                                                        \
        PublishText("path", SlowLibrary());                  \
        SetLoad(milliseconds, fails);                        \
        StartDefaultAgent();                                 \
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection()); \
        EXPECT_TRUE(Await("checked"));                       \
    }

WATCHDOG_TEST_OF_ONE_LOAD(IgnoresALoadOf200Milliseconds, 200, false)
WATCHDOG_TEST_OF_ONE_LOAD(IgnoresALoadOf400Milliseconds, 400, false)
WATCHDOG_TEST_OF_ONE_LOAD(IgnoresAFailedLoadOf200Milliseconds, 200, true)
WATCHDOG_TEST_OF_ONE_LOAD(AsksForTheThreadsInALoadOf600Milliseconds, 600, false)
WATCHDOG_TEST_OF_ONE_LOAD(AsksForTheThreadsInALoadOf2000Milliseconds, 2000, false)
WATCHDOG_TEST_OF_ONE_LOAD(AsksForTheThreadsInAFailedLoadOf600Milliseconds, 600, true)

HOST_TEST(Watchdog, WatchesTheLoadsAfterAHangAsBefore)
{
    PublishText("path", SlowLibrary());
    ConnectDefaultAgent();
    for (const uint32_t milliseconds : {700, 700, 600})
    {
        SetLoad(milliseconds, false);
        Signal("load " + std::to_string(CountInLog("Processing Blob::LoadPatchWindows")));
        const size_t count = CountInLog("Processing Blob::UnloadPatch") + 1;
        EXPECT_TRUE(WaitUntil([&] { return CountInLog("Processing Blob::UnloadPatch") == count; }));
    }
    EXPECT_EQ(3u, CountInLog(hangLine));
    EXPECT_EQ(3u, CountInLog("Waiting for loading to finish"));
    EXPECT_EQ(3u, CountInLog("Suspending held threads"));
    ExpectLogOrder({"Running watchdog thread", hangLine, "Waiting for loading to finish",
                    "Suspending held threads", hangLine, "Waiting for loading to finish",
                    "Suspending held threads", hangLine, "Waiting for loading to finish",
                    "Suspending held threads"});
    // The watch begins when the load does, on another thread, and the log counts in hundredths of a second.
    EXPECT_GE(TimeBetween(ReadLog(), "Processing Blob::LoadPatchWindows", hangLine),
              watchdogLimit / 1000.0 - 0.05);
}

HOST_TEST(Watchdog, LetsALoadWithoutTheFlagTakeAnyTime)
{
    PublishText("path", SlowLibrary());
    SetLoad(5000, false);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(0u, CountInLog(hangLine));
}

HOST_TEST(Watchdog, ShutdownWakesItWhenIdle)
{
    UseDefaultBridge();
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Running watchdog thread"));
    Shutdown();
    EXPECT_EQ(1u, CountInLog("Exiting watchdog thread"));
    EXPECT_EQ(1u, CountInLog("Exiting heart beat thread"));
    EXPECT_EQ(0u, CountInLog(hangLine));
}

HOST_TEST(Watchdog, ShutdownWakesItWhileItWatches)
{
    PublishText("path", SlowLibrary());
    SetLoad(300, false);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("sent"));
    Shutdown();
    EXPECT_EQ(1u, CountInLog("Exiting watchdog thread"));
}

HOST_TEST(Watchdog, ShutdownWakesItWhileItWaitsForAHangingLoad)
{
    PublishText("path", SlowLibrary());
    SetLoad(3000, false);
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Waiting for loading to finish"));
    Shutdown();
    EXPECT_EQ(1u, CountInLog("Suspending held threads"));
    ExpectLogOrder({"Waiting for loading to finish", "Suspending held threads", "Exiting watchdog thread"});
}

#else

namespace
{
class WatchdogBridge : public ConnectedBridgeTest
{
protected:
    struct Outcome
    {
        Message answer;
        uint32_t resumed = 0;   ///< `ResumeHeldThreads` Blobs before the answer
        uint32_t suspended = 0; ///< `SuspendHeldThreads` Blobs
        double time = 0;        ///< seconds from command to answer
    };

    /// Loads the library once and takes everything that comes of it.
    Outcome Load(bool watchdog = true)
    {
        PatchCommand command;
        command.path = AwaitText("path");
        command.watchdog = watchdog;
        const double begin = link.Now();
        EXPECT_TRUE(SendLoadPatch(link, command));
        Outcome outcome;
        for (Message message = Next(); message; message = Next())
        {
            const bool answers =
                message.Type() == BlobType::PatchLoaded || message.Type() == BlobType::LogNarrow;
            outcome.resumed += message.Type() == BlobType::ResumeHeldThreads;
            outcome.suspended += message.Type() == BlobType::SuspendHeldThreads;
            if (answers)
            {
                outcome.time = message.Time() - begin;
                outcome.answer = message;
            }
            if (outcome.answer && outcome.resumed == outcome.suspended)
            {
                break;
            }
        }
        EXPECT_TRUE(WaitUntilExecuted());
        return outcome;
    }

    void Unload(const Outcome& outcome)
    {
        if (const auto* loaded = outcome.answer.As<PatchLoadedBlob>())
        {
            EXPECT_TRUE(SendUnloadPatch(link, loaded->base));
        }
    }

    /// Loads that are meant to stay below the limit: a busy machine can make one longer, which then proves nothing.
    void ExpectNoHang(BlobType answer)
    {
        constexpr uint32_t tries = 20;
        for (uint32_t i = 0; i < tries; ++i)
        {
            const Outcome outcome = Load();
            ASSERT_TRUE(outcome.answer);
            EXPECT_EQ(answer, outcome.answer.Type());
            EXPECT_EQ(outcome.resumed, outcome.suspended);
            if (outcome.time < watchdogLimit / 1000.0)
            {
                EXPECT_EQ(0u, outcome.resumed);
                return;
            }
            if (answer == BlobType::PatchLoaded)
            {
                Unload(outcome);
            }
        }
        ADD_FAILURE() << "No load was as quick as it was meant to be.";
    }

    void ExpectHang(BlobType answer)
    {
        PatchCommand command;
        command.path = AwaitText("path");
        command.watchdog = true;
        ASSERT_TRUE(SendLoadPatch(link, command));
        EXPECT_EQ(ByteCount(BlobType::ResumeHeldThreads), 12u);
        EXPECT_TRUE(link.ReceiveOneOf({answer}, testTimeout));
        EXPECT_EQ(ByteCount(BlobType::SuspendHeldThreads), 12u);
        ExpectNoReply();
    }

private:
    Message Next()
    {
        return link.ReceiveOneOf({BlobType::PatchLoaded, BlobType::LogNarrow, BlobType::ResumeHeldThreads,
                                  BlobType::SuspendHeldThreads},
                                 testTimeout);
    }

    /// Size of the next Blob of that type, its header included. 0 if none comes.
    size_t ByteCount(BlobType type)
    {
        return link.ReceiveOneOf({type}, testTimeout).Bytes().size();
    }
};
} // namespace

#define WATCHDOG_BRIDGE(Name) BRIDGE_SCENARIO_OF(WatchdogBridge, Watchdog, Name)

WATCHDOG_BRIDGE(IgnoresALoadOf200Milliseconds)
{
    ExpectNoHang(BlobType::PatchLoaded);
}

WATCHDOG_BRIDGE(IgnoresALoadOf400Milliseconds)
{
    ExpectNoHang(BlobType::PatchLoaded);
}

WATCHDOG_BRIDGE(IgnoresAFailedLoadOf200Milliseconds)
{
    ExpectNoHang(BlobType::LogNarrow);
}

WATCHDOG_BRIDGE(AsksForTheThreadsInALoadOf600Milliseconds)
{
    ExpectHang(BlobType::PatchLoaded);
}

WATCHDOG_BRIDGE(AsksForTheThreadsInALoadOf2000Milliseconds)
{
    ExpectHang(BlobType::PatchLoaded);
}

WATCHDOG_BRIDGE(AsksForTheThreadsInAFailedLoadOf600Milliseconds)
{
    ExpectHang(BlobType::LogNarrow);
}

WATCHDOG_BRIDGE(WatchesTheLoadsAfterAHangAsBefore)
{
    uint32_t number = 0;
    for (const uint32_t hangs : {1, 1, 1})
    {
        ASSERT_TRUE(Await("load " + std::to_string(number++)));
        const Outcome outcome = Load();
        ASSERT_TRUE(outcome.answer);
        EXPECT_EQ(hangs, outcome.resumed);
        EXPECT_EQ(hangs, outcome.suspended);
        Unload(outcome);
    }
}

WATCHDOG_BRIDGE(LetsALoadWithoutTheFlagTakeAnyTime)
{
    const Outcome outcome = Load(false);
    ASSERT_TRUE(outcome.answer);
    EXPECT_EQ(0u, outcome.resumed);
    EXPECT_EQ(0u, outcome.suspended);
}

WATCHDOG_BRIDGE(ShutdownWakesItWhileItWatches)
{
    PatchCommand command;
    command.path = AwaitText("path");
    command.watchdog = true;
    ASSERT_TRUE(SendLoadPatch(link, command));
    Signal("sent");
}

WATCHDOG_BRIDGE(ShutdownWakesItWhileItWaitsForAHangingLoad)
{
    PatchCommand command;
    command.path = AwaitText("path");
    command.watchdog = true;
    ASSERT_TRUE(SendLoadPatch(link, command));
    EXPECT_TRUE(link.ReceiveOneOf({BlobType::ResumeHeldThreads}, testTimeout));
}

#endif
