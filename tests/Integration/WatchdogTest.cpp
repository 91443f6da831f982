#include "tests/Support/Integration/IntegrationTest.h"
#if TORVANE_HOST_HALF
#include "tests/Support/Integration/AgentEvent.h"
#endif

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

/// For each record of one message the seconds since the latest one of another, by the log's own clock.
std::vector<double> TimesSince(const std::vector<LogRecord>& log, const std::string& from,
                               const std::string& to)
{
    std::vector<double> times;
    double begin = -1;
    for (const LogRecord& record : log)
    {
        if (record.message == from)
        {
            begin = record.time;
        }
        else if (record.message == to)
        {
            times.push_back(record.time - begin);
        }
    }
    return times;
}

/// Knows one of the watchdog's events.
class WatchdogHost : public HostTest
{
protected:
    void Connect(LONG eventNumber, uint32_t loadTime)
    {
        PublishText("path", SlowLibrary());
        SetLoad(loadTime, false);
        new AgentEvent(Library().Module(), eventNumber); // for the rest of the process
        StartDefaultAgent();
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    }
};
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
    for (const uint32_t milliseconds : {700, 0, 700, 600})
    {
        SetLoad(milliseconds, false);
        Signal("load " + std::to_string(CountInLog("Processing Blob::LoadPatchWindows")));
        const size_t count = CountInLog("Processing Blob::UnloadPatch") + 1;
        EXPECT_TRUE(WaitUntil([&] { return CountInLog("Processing Blob::UnloadPatch") == count; }));
    }
    const size_t hangs = static_cast<size_t>(AwaitNumber("hangs"));
    EXPECT_LE(3u, hangs);
    EXPECT_EQ(hangs, CountInLog(hangLine));
    EXPECT_EQ(hangs, CountInLog("Waiting for loading to finish"));
    EXPECT_EQ(hangs, CountInLog("Suspending held threads"));
    ExpectLogOrder({"Running watchdog thread", hangLine, "Waiting for loading to finish",
                    "Suspending held threads", hangLine, "Waiting for loading to finish",
                    "Suspending held threads", hangLine, "Waiting for loading to finish",
                    "Suspending held threads"});
    // The watch begins when the load does, on another thread, and the log counts in hundredths of a second.
    for (const double time : TimesSince(ReadLog(), "Processing Blob::LoadPatchWindows", hangLine))
    {
        EXPECT_GE(time, watchdogLimit / 1000.0 - 0.05);
    }
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

HOST_TEST(Watchdog, ShutdownWaitsForAGuardedLoad)
{
    PublishText("path", SlowLibrary());
    SetLoad(300, false);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("sent"));
    Shutdown();
    EXPECT_EQ(1u, CountInLog("Exiting watchdog thread"));
    ExpectLogOrder({"Enabling watchdog thread", "Disabling watchdog thread",
                    "Thread 'Torvane receiver' exited with result 8", "Exiting watchdog thread"});
}

HOST_TEST_OF(WatchdogHost, Watchdog, ShutdownWakesItWhileItWatches)
{
    UseScenario("Watchdog.LoadsOnceWithoutAHang");
    Connect(watchdogWatchEvent, 0);
    AgentEvent::LoseSignals();
    AgentEvent::ChangeTimeOut(watchdogLimit, INFINITE);
    Signal("load");
    EXPECT_TRUE(Await("loaded"));
    EXPECT_TRUE(WaitUntil([] { return AgentEvent::CountWaits() == 1; }));
    EXPECT_EQ(0u, CountInLog("Exiting watchdog thread"));
    AgentEvent::YieldAfterSignals();
    Shutdown();
    EXPECT_EQ(1u, CountInLog("Exiting watchdog thread"));
    EXPECT_EQ(0u, CountInLog(hangLine));
}

HOST_TEST_OF(WatchdogHost, Watchdog, ShutdownEndsAHang)
{
    Connect(watchdogWatchEvent, 0);
    AgentEvent::LoseSignals();
    Signal("load");
    EXPECT_TRUE(Await("loaded"));
    EXPECT_TRUE(WaitForLog("Waiting for loading to finish"));
    EXPECT_EQ(0u, CountInLog("Suspending held threads"));
    AgentEvent::YieldAfterSignals();
    Shutdown();
    ExpectLogOrder({"Disabling watchdog thread", hangLine, "Waiting for loading to finish",
                    "Shutting down agent-bridge communication", "Exiting sender thread",
                    "Suspending held threads", "Exiting watchdog thread"});
    EXPECT_EQ(1u, CountInLog("Suspending held threads"));
}

HOST_TEST_OF(WatchdogHost, Watchdog, TakesALeftOverSignalForTheEndOfTheNextLoad)
{
    Connect(watchdogWatchEvent, 700);
    SetEvent(AgentEvent::Get());
    Signal("load with a signal left");
    EXPECT_TRUE(Await("loaded without a hang"));
    EXPECT_EQ(0u, CountInLog(hangLine));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(AgentEvent::Get(), 0)) << "Now the load's own is left.";
    ResetEvent(AgentEvent::Get());
    Signal("load");
    EXPECT_TRUE(Await("loaded with a hang"));
    EXPECT_EQ(1u, CountInLog(hangLine));
}

HOST_TEST_OF(WatchdogHost, Watchdog, IsIdleAfterALoad)
{
    UseScenario("Watchdog.LoadsOnceWithoutAHang");
    Connect(watchdogWatchEvent, 0);
    Signal("load");
    EXPECT_TRUE(Await("loaded"));
    EXPECT_FALSE(WaitUntil([] { return AgentEvent::CountWaits() > 1; }, quietPeriod));
    EXPECT_EQ(1, AgentEvent::CountWaits());
}

HOST_TEST_OF(WatchdogHost, Watchdog, EndsWhenItCannotWaitForALoad)
{
    UseScenario("Watchdog.LoadsOnceWithoutAHang");
    PublishText("path", SlowLibrary());
    SetLoad(700, false);
    new AgentEvent(Library().Module(), watchdogEnterEvent); // for the rest of the process
    AgentEvent::FailWaits(INFINITE);
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Exiting watchdog thread"));
    Signal("load");
    EXPECT_TRUE(Await("loaded")) << "No load is watched any more.";
    EXPECT_EQ(1, AgentEvent::CountWaits());
    EXPECT_EQ(1u, CountInLog("Failed to Wait() on an event"));
    ExpectLogOrder({"Running watchdog thread", "Failed to Wait() on an event", "Exiting watchdog thread",
                    "Enabling watchdog thread"});
}

HOST_TEST_OF(WatchdogHost, Watchdog, TakesAFailedWatchForAHang)
{
    Connect(watchdogWatchEvent, 100);
    AgentEvent::FailWaits(watchdogLimit);
    Signal("load");
    EXPECT_TRUE(Await("checked"));
    ExpectLogOrder({"Enabling watchdog thread", "Failed to Wait() on an event", hangLine,
                    "Waiting for loading to finish", "Suspending held threads"});
    EXPECT_EQ(0u, CountInLog("Exiting watchdog thread"));
}

HOST_TEST_OF(WatchdogHost, Watchdog, EndsWhenItCannotWaitForTheEndOfAHang)
{
    Connect(watchdogWatchEvent, 700);
    AgentEvent::FailWaits(INFINITE);
    Signal("load");
    EXPECT_TRUE(Await("checked"));
    ExpectLogOrder({hangLine, "Waiting for loading to finish", "Failed to Wait() on an event",
                    "Exiting watchdog thread"});
    EXPECT_EQ(0u, CountInLog("Suspending held threads"));
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

    void SendLoad(bool watchdog = true)
    {
        PatchCommand command;
        command.path = AwaitText("path");
        command.watchdog = watchdog;
        EXPECT_TRUE(SendLoadPatch(link, command));
    }

    /// Loads the library once and takes everything that comes of it.
    Outcome Load(bool watchdog = true)
    {
        const double begin = link.Now();
        SendLoad(watchdog);
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
        EXPECT_TRUE(Fence());
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
        SendLoad();
        EXPECT_EQ(ByteCount(BlobType::ResumeHeldThreads), 12u);
        EXPECT_TRUE(link.WaitForOneOf({answer}, testTimeout));
        EXPECT_EQ(ByteCount(BlobType::SuspendHeldThreads), 12u);
        ExpectNoReply();
    }

private:
    Message Next()
    {
        return link.WaitForOneOf({BlobType::PatchLoaded, BlobType::LogNarrow, BlobType::ResumeHeldThreads,
                                  BlobType::SuspendHeldThreads},
                                 testTimeout);
    }

    /// Size of the next Blob of that type, its header included. 0 if none comes.
    size_t ByteCount(BlobType type)
    {
        return link.WaitForOneOf({type}, testTimeout).Bytes().size();
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
    uint64_t hangs = 0;
    for (uint32_t number = 0; number < 4; ++number)
    {
        ASSERT_TRUE(Await("load " + std::to_string(number)));
        const Outcome outcome = Load();
        ASSERT_TRUE(outcome.answer);
        const bool isQuick = number == 1 && outcome.time < watchdogLimit / 1000.0;
        EXPECT_EQ(isQuick ? 0u : 1u, outcome.resumed);
        EXPECT_EQ(outcome.resumed, outcome.suspended);
        hangs += outcome.resumed;
        Unload(outcome);
    }
    Publish("hangs", hangs);
}

WATCHDOG_BRIDGE(LetsALoadWithoutTheFlagTakeAnyTime)
{
    const Outcome outcome = Load(false);
    ASSERT_TRUE(outcome.answer);
    EXPECT_EQ(0u, outcome.resumed);
    EXPECT_EQ(0u, outcome.suspended);
}

WATCHDOG_BRIDGE(ShutdownWaitsForAGuardedLoad)
{
    SendLoad();
    Signal("sent");
}

WATCHDOG_BRIDGE(LoadsOnceWithoutAHang)
{
    ASSERT_TRUE(Await("load"));
    const Outcome outcome = Load();
    ASSERT_TRUE(outcome.answer);
    EXPECT_EQ(0u, outcome.resumed);
    EXPECT_EQ(0u, outcome.suspended);
    Signal("loaded");
}

WATCHDOG_BRIDGE(ShutdownEndsAHang)
{
    ASSERT_TRUE(Await("load"));
    SendLoad();
    EXPECT_TRUE(WaitFor<PatchLoadedBlob>());
    EXPECT_TRUE(link.WaitForOneOf({BlobType::ResumeHeldThreads}, testTimeout));
    Signal("loaded");
    StayUntilAgentGoes();
    EXPECT_FALSE(link.WaitForOneOf({BlobType::SuspendHeldThreads}, 0)) << "The sender had ended.";
    ExitBeforeAgent();
}

WATCHDOG_BRIDGE(TakesALeftOverSignalForTheEndOfTheNextLoad)
{
    ASSERT_TRUE(Await("load with a signal left"));
    const Outcome first = Load();
    EXPECT_TRUE(first.answer);
    EXPECT_EQ(0u, first.resumed);
    Unload(first);
    ASSERT_TRUE(Fence());
    Signal("loaded without a hang");
    ASSERT_TRUE(Await("load"));
    const Outcome second = Load();
    EXPECT_TRUE(second.answer);
    EXPECT_EQ(1u, second.resumed);
    EXPECT_EQ(1u, second.suspended);
    Signal("loaded with a hang");
}

WATCHDOG_BRIDGE(TakesAFailedWatchForAHang)
{
    ASSERT_TRUE(Await("load"));
    ExpectHang(BlobType::PatchLoaded);
}

WATCHDOG_BRIDGE(EndsWhenItCannotWaitForTheEndOfAHang)
{
    ASSERT_TRUE(Await("load"));
    SendLoad();
    EXPECT_TRUE(link.WaitForOneOf({BlobType::ResumeHeldThreads}, testTimeout));
    EXPECT_TRUE(WaitFor<PatchLoadedBlob>());
    ExpectNoReply();
}

WATCHDOG_BRIDGE(ShutdownWakesItWhileItWaitsForAHangingLoad)
{
    SendLoad();
    EXPECT_TRUE(link.WaitForOneOf({BlobType::ResumeHeldThreads}, testTimeout));
}

#endif
