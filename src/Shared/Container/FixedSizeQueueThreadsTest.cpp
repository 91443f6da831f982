#include "tests/Support/FakeImport.h"
#include "tests/Support/FixedSizeQueueFixture.h"
#include "tests/Support/TestThread.h"

#include <atomic>
#include <memory>
#include <vector>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t threadCount = 4;
constexpr uint32_t elementsEach = 300;

class FixedSizeQueueThreads : public FixedSizeQueueFixture
{
};

/// A small queue, so that threads meet both of its ends often.
class SmallQueueThreads : public testing::Test
{
protected:
    using Queue = FixedSizeQueue<Allocation, 4>;

    ~SmallQueueThreads() override
    {
        Queue::Destroy(queue);
    }

    /// Each thread pushes its own ascending numbers: an element's pointer is the thread, its size the number.
    std::vector<std::unique_ptr<TestThread>> StartPushers()
    {
        std::vector<std::unique_ptr<TestThread>> threads;
        for (uint32_t thread = 1; thread <= threadCount; ++thread)
        {
            threads.push_back(std::make_unique<TestThread>([this, thread] {
                for (uint32_t number = 0; number < elementsEach; ++number)
                {
                    Allocation element = {reinterpret_cast<void*>(uintptr_t{thread}), number};
                    EXPECT_TRUE(queue->Push(element));
                }
            }));
        }
        return threads;
    }

    static uint32_t ThreadOf(const Allocation& element)
    {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(element.pointer));
    }

    TestMemorySystem memory;
    Queue* queue = Queue::Create();
};
} // namespace

TEST_F(FixedSizeQueueThreads, PushBlocksWhenFullUntilAPop)
{
    for (uint32_t i = 0; i < agentQueueCapacity; ++i)
    {
        ASSERT_TRUE(PushNumber(queue, i));
    }

    std::atomic<bool> waits = false;
    const HANDLE producer = Producer();
    const FakeImport wait("WaitForSingleObject",
                          [&](decltype(&WaitForSingleObject) real, HANDLE object, DWORD milliseconds) {
                              if (object == producer)
                              {
                                  EXPECT_EQ(milliseconds, INFINITE);
                                  waits = true;
                              }
                              return real(object, milliseconds);
                          });
    const TestThread pusher([&] { EXPECT_TRUE(PushNumber(queue, agentQueueCapacity)); });
    EXPECT_TRUE(WaitUntil([&] { return waits.load(); }));
    EXPECT_FALSE(pusher.WaitForEnd(quietPeriod));
    EXPECT_EQ(Look(queue).writeCounter, agentQueueCapacity);

    Allocation popped = {};
    EXPECT_TRUE(queue->Pop(popped));
    EXPECT_TRUE(Is(popped, 0));
    EXPECT_TRUE(pusher.WaitForEnd());
    EXPECT_TRUE(Is(Look(queue).slots[0], agentQueueCapacity));
    for (uint32_t i = 1; i <= agentQueueCapacity; ++i)
    {
        ASSERT_TRUE(queue->Pop(popped));
        ASSERT_TRUE(Is(popped, i));
    }
}

TEST_F(FixedSizeQueueThreads, PopBlocksWhenEmptyUntilAPush)
{
    std::atomic<bool> waits = false;
    const HANDLE consumer = Consumer();
    const FakeImport wait("WaitForSingleObject",
                          [&](decltype(&WaitForSingleObject) real, HANDLE object, DWORD milliseconds) {
                              if (object == consumer)
                              {
                                  EXPECT_EQ(milliseconds, INFINITE);
                                  waits = true;
                              }
                              return real(object, milliseconds);
                          });
    Allocation popped = {};
    const TestThread popper([&] { EXPECT_TRUE(queue->Pop(popped)); });
    EXPECT_TRUE(WaitUntil([&] { return waits.load(); }));
    EXPECT_FALSE(popper.WaitForEnd(quietPeriod));
    EXPECT_EQ(Look(queue).readCounter, 0u);

    EXPECT_TRUE(PushNumber(queue, 4711));
    EXPECT_TRUE(popper.WaitForEnd());
    EXPECT_TRUE(Is(popped, 4711));
}

TEST_F(FixedSizeQueueThreads, AdmitsOnePusherAtATimeToTheSlots)
{
    SRWLOCK* producerLock = reinterpret_cast<SRWLOCK*>(queue);
    AcquireSRWLockExclusive(producerLock);
    const TestThread pusher([&] { EXPECT_TRUE(PushNumber(queue, 1)); });
    EXPECT_FALSE(pusher.WaitForEnd(quietPeriod));
    EXPECT_EQ(Look(queue).writeCounter, 0u);
    ReleaseSRWLockExclusive(producerLock);
    EXPECT_TRUE(pusher.WaitForEnd());
    EXPECT_EQ(Look(queue).writeCounter, 1u);
}

TEST_F(FixedSizeQueueThreads, AdmitsOnePopperAtATimeToTheSlots)
{
    EXPECT_TRUE(PushNumber(queue, 1));
    SRWLOCK* consumerLock = reinterpret_cast<SRWLOCK*>(queue) + 1;
    AcquireSRWLockExclusive(consumerLock);
    Allocation popped = {};
    const TestThread popper([&] { EXPECT_TRUE(queue->Pop(popped)); });
    EXPECT_FALSE(popper.WaitForEnd(quietPeriod));
    EXPECT_EQ(Look(queue).readCounter, 0u);
    ReleaseSRWLockExclusive(consumerLock);
    EXPECT_TRUE(popper.WaitForEnd());
    EXPECT_TRUE(Is(popped, 1));
}

TEST_F(SmallQueueThreads, KeepsEachPushersOrderForOnePopper)
{
    const auto pushers = StartPushers();
    uint32_t next[threadCount + 1] = {};
    for (uint32_t i = 0; i < threadCount * elementsEach; ++i)
    {
        Allocation element = {};
        ASSERT_TRUE(queue->Pop(element));
        const uint32_t thread = ThreadOf(element);
        ASSERT_GE(thread, 1u);
        ASSERT_LE(thread, threadCount);
        ASSERT_EQ(element.size, next[thread]++);
    }
}

TEST_F(SmallQueueThreads, GivesEachElementToExactlyOneOfSeveralPoppers)
{
    std::atomic<uint32_t> taken[threadCount + 1][elementsEach] = {};
    {
        std::vector<std::unique_ptr<TestThread>> poppers;
        for (uint32_t i = 0; i < 3; ++i)
        {
            poppers.push_back(std::make_unique<TestThread>([&] {
                uint32_t last[threadCount + 1] = {};
                for (;;)
                {
                    Allocation element = {};
                    EXPECT_TRUE(queue->Pop(element));
                    if (element.pointer == nullptr)
                    {
                        return;
                    }
                    const uint32_t thread = ThreadOf(element);
                    EXPECT_GE(element.size, last[thread]);
                    last[thread] = element.size;
                    ++taken[thread][element.size];
                }
            }));
        }
        StartPushers().clear();
        for (size_t i = 0; i < poppers.size(); ++i)
        {
            Allocation stop = {};
            EXPECT_TRUE(queue->Push(stop));
        }
    }
    for (uint32_t thread = 1; thread <= threadCount; ++thread)
    {
        for (const std::atomic<uint32_t>& times : taken[thread])
        {
            ASSERT_EQ(times, 1u);
        }
    }
}
} // namespace Torvane::Testing
