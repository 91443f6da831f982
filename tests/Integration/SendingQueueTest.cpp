#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The queue of 4096 Blobs between the host's threads and the sender.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/StartupGate.h"
#include "tests/Support/TestThread.h"

namespace
{
constexpr long capacity = 4096;
constexpr DWORD longerLook = 200; // milliseconds

/// A host thread that pushes numbers: (`preference`, 0), (`preference`, 1), ...
class Producer
{
public:
    Producer(const TvnDefaultAgent& usedAgent, uint32_t usedPreference, long pushes)
        : agent(usedAgent)
        , preference(usedPreference)
        , count(pushes)
    {
    }

    /// How many pushes have returned.
    long Done() const
    {
        return done;
    }

    bool WaitForEnd(uint32_t milliseconds = testTimeout) const
    {
        return thread.WaitForEnd(milliseconds);
    }

private:
    void Push()
    {
        for (long i = 0; i < count; ++i)
        {
            agent.TvnSetIntPreferences(preference, i);
            InterlockedIncrement(&done);
        }
    }

    const TvnDefaultAgent& agent;
    uint32_t preference;
    long count;
    volatile long done = 0;
    TestThread thread{[this] {
        Push();
    }};
};

class SendingQueueTest : public LinkTest
{
protected:
    /// The producer has begun one call more than the queue has room for, and that call doesn't return.
    void ExpectBlocked(const Producer& producer)
    {
        EXPECT_TRUE(WaitUntil([&] { return producer.Done() == capacity; }));
        EXPECT_TRUE(
            WaitUntil([&] { return CountInLog("API TvnSetIntPreferences") == size_t(capacity) + 1; }));
        EXPECT_FALSE(producer.WaitForEnd(longerLook)) << "There is no room for this one.";
        EXPECT_EQ(capacity, producer.Done());
    }

    void StartWithoutABridge()
    {
        RemoveBridge();
        agent = &StartWatchedAgent();
        ExpectStatus(ConnectionFailed);
        ExpectReceiverEnd(10);
    }

    TvnDefaultAgent* agent = nullptr;
};
} // namespace

#define SENDING_QUEUE(Name) HOST_TEST_OF(SendingQueueTest, SendingQueue, Name)

SENDING_QUEUE(TakesAllThatItHoldsBeforeTheBridgeConnectsAndNotOneMore)
{
    StartupGate gate;
    TvnDefaultAgent& started = StartWatchedAgent();
    const Producer producer(started, 1, capacity + 1);
    ExpectBlocked(producer);
    EXPECT_EQ(0u, CountInLog("Spawned bridge process"));
    gate.Open();
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(producer.WaitForEnd());
    EXPECT_EQ(capacity + 1, producer.Done());
    EXPECT_TRUE(Await("all taken"));
    ExpectErrorLines({});
}

SENDING_QUEUE(BlocksWhileTheBridgeDoesNotRead)
{
    TvnDefaultAgent& started = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    started.TvnLogMessageANSI(std::string(0x40000, 'x').c_str());
    EXPECT_TRUE(Await("sender blocked"));
    const Producer producer(started, 1, capacity + 1);
    ExpectBlocked(producer);
    Signal("full");
    EXPECT_TRUE(producer.WaitForEnd());
    EXPECT_EQ(capacity + 1, producer.Done());
    EXPECT_TRUE(Await("all taken"));
    Shutdown();
    Signal("shut down");
}

SENDING_QUEUE(KeepsTheOrderOfEachOfManyThreads)
{
    TvnDefaultAgent& started = StartWatchedAgent();
    constexpr long pushes = 3000;
    const Producer producers[] = {
        {started, 0, pushes}, {started, 1, pushes}, {started, 2, pushes}, {started, 3, pushes}};
    for (const Producer& producer : producers)
    {
        EXPECT_TRUE(producer.WaitForEnd());
    }
    EXPECT_TRUE(Await("all taken"));
    ExpectErrorLines({});
}

SENDING_QUEUE(TakesAllThatItHoldsWithoutAConsumerAndBlocksForever)
{
    StartWithoutABridge();
    const auto* const producer = new Producer(*agent, 1, capacity + 1); // never ends
    ExpectBlocked(*producer);
    LeaveAgentRunning(); // it has no room for the stop mark
}

SENDING_QUEUE(BlocksACallOnlyWhenItsLineIsInTheLog)
{
    StartWithoutABridge();
    const Producer producer(*agent, 1, capacity);
    ASSERT_TRUE(producer.WaitForEnd());
    struct Call
    {
        const char* line;
        void (*make)(const TvnDefaultAgent& agent);
    };
    static constexpr Call calls[] = {
        {"API TvnLogMessage",
         [](const TvnDefaultAgent& used) {
             used.TvnLogMessage(L"text");
         }},
        {"API TvnLogMessageANSI",
         [](const TvnDefaultAgent& used) {
             used.TvnLogMessageANSI("text");
         }},
        {"API TvnScheduleReload",
         [](const TvnDefaultAgent& used) {
             used.TvnScheduleReload();
         }},
        {"API TvnScheduleRestart",
         [](const TvnDefaultAgent& used) {
             used.TvnScheduleRestart(ThisProcessOnly);
         }},
        {"API TvnSetBoolPreferences",
         [](const TvnDefaultAgent& used) {
             used.TvnSetBoolPreferences(1, true);
         }},
        {"API TvnSetStringPreferences",
         [](const TvnDefaultAgent& used) {
             used.TvnSetStringPreferences(1, "text");
         }},
        {"API TvnSetShortcutPreferences",
         [](const TvnDefaultAgent& used) {
             used.TvnSetShortcutPreferences(1, 2, 3);
         }},
    };
    for (const Call& call : calls)
    {
        const auto* const blocked = new TestThread([this, &call] { call.make(*agent); }); // never ends
        EXPECT_TRUE(WaitForLog(call.line)) << call.line;
        EXPECT_FALSE(blocked->HasEnded()) << call.line;
    }
    LeaveAgentRunning();
}

SENDING_QUEUE(HasRoomForTheStopMarkWhenAllButOneAreTaken)
{
    StartWithoutABridge();
    const Producer producer(*agent, 1, capacity - 1);
    EXPECT_TRUE(producer.WaitForEnd());
    Shutdown();
    ExpectSenderEnd(3);
}

SENDING_QUEUE(HoldsUpAShutdownWhenItIsFullAndHasNoConsumer)
{
    StartWithoutABridge();
    const Producer producer(*agent, 1, capacity);
    EXPECT_TRUE(producer.WaitForEnd());
    const auto* const shutdown = new TestThread([this] { Library().TvnShutdown(); }); // never ends
    LeaveAgentRunning();                                                              // half shut down
    ExpectSenderEnd(3);
    EXPECT_FALSE(shutdown->WaitForEnd(longerLook));
    EXPECT_EQ("Thread 'Torvane sender' exited with result 3", ReadLog().back().message)
        << "What follows the sender's end doesn't happen.";
}

#else

namespace
{
/// Takes that many of (1, 0), (1, 1), ...
void ExpectNumbers(Link& link, int32_t count)
{
    for (int32_t i = 0; i < count; ++i)
    {
        const Received<SetIntPreferencesBlob> blob(link.Receive(testTimeout));
        ASSERT_TRUE(blob);
        ASSERT_EQ(BlobType::SetIntPreferences, blob.Type());
        ASSERT_EQ(1u, blob->preference);
        ASSERT_EQ(i, blob->value);
    }
}
} // namespace

BRIDGE_SCENARIO(SendingQueue, TakesAllThatItHoldsBeforeTheBridgeConnectsAndNotOneMore)
{
    ExpectNumbers(link, 4097);
    Signal("all taken");
}

BRIDGE_SCENARIO_OF(RawPipeBridge, SendingQueue, BlocksWhileTheBridgeDoesNotRead)
{
    Register();
    ASSERT_TRUE(agentPipe.WaitForBytes(0x40000));
    Signal("sender blocked");
    ASSERT_TRUE(Await("full"));
    EXPECT_EQ(8u + 8u + 0x40001u, agentPipe.ReadBlob().size());
    for (int32_t i = 0; i < 4097; ++i)
    {
        const Received<SetIntPreferencesBlob> blob(Message(Direction::FromAgent, 0, agentPipe.ReadBlob()));
        ASSERT_TRUE(blob);
        ASSERT_EQ(i, blob->value);
    }
    Signal("all taken");
    EXPECT_TRUE(Await("shut down"));
}

BRIDGE_SCENARIO(SendingQueue, KeepsTheOrderOfEachOfManyThreads)
{
    int32_t next[4] = {};
    for (int i = 0; i < 4 * 3000; ++i)
    {
        const Received<SetIntPreferencesBlob> blob(Receive());
        ASSERT_TRUE(blob);
        ASSERT_EQ(BlobType::SetIntPreferences, blob.Type());
        ASSERT_GT(4u, blob->preference);
        ASSERT_EQ(next[blob->preference]++, blob->value);
    }
    Signal("all taken");
}

#endif
