#include "Shared/Container/FixedSizeQueue.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/FixedSizeQueueFixture.h"
#include "tests/Support/OSErrorLine.h"

#include <stddef.h>

#include <memory>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

inline void SetCounters(AgentQueue* queue, uint64_t value)
{
    memcpy(reinterpret_cast<char*>(queue) + offsetof(QueueLayout, readCounter), &value, sizeof(value));
    memcpy(reinterpret_cast<char*>(queue) + offsetof(QueueLayout, writeCounter), &value, sizeof(value));
}

/// As long as it lives, the queue has no handle in one of its fields, and waits for it fail.
class MissingSemaphore
{
public:
    MissingSemaphore(AgentQueue* queue, size_t offset)
        : field(reinterpret_cast<char*>(queue) + offset)
    {
        const HANDLE none = nullptr;
        memcpy(&semaphore, field, sizeof(semaphore));
        memcpy(field, &none, sizeof(none));
    }

    ~MissingSemaphore()
    {
        memcpy(field, &semaphore, sizeof(semaphore));
    }

    MissingSemaphore(const MissingSemaphore&) = delete;
    MissingSemaphore& operator=(const MissingSemaphore&) = delete;

private:
    char* field;
    HANDLE semaphore;
};

class FixedSizeQueueTest : public FixedSizeQueueFixture
{
};
} // namespace

// One thread

TEST_F(FixedSizeQueueTest, StartsWithClearedCountersAndSlots)
{
    const QueueLayout layout = Look(queue);
    EXPECT_EQ(layout.readCounter, 0u);
    EXPECT_EQ(layout.writeCounter, 0u);
    EXPECT_EQ(layout.producerLock.Ptr, nullptr);
    EXPECT_EQ(layout.consumerLock.Ptr, nullptr);
    for (const Allocation& slot : layout.slots)
    {
        ASSERT_TRUE(IsEmpty(slot));
    }
}

TEST_F(FixedSizeQueueTest, MovesAnElementIntoTheSlotOfItsCounter)
{
    Allocation first = Numbered(1);
    Allocation second = Numbered(2);
    EXPECT_TRUE(queue->Push(first));
    EXPECT_TRUE(queue->Push(second));
    EXPECT_TRUE(IsEmpty(first));
    EXPECT_TRUE(IsEmpty(second));
    const QueueLayout layout = Look(queue);
    EXPECT_TRUE(Is(layout.slots[0], 1));
    EXPECT_TRUE(Is(layout.slots[1], 2));
    EXPECT_EQ(layout.writeCounter, 2u);
    EXPECT_EQ(layout.readCounter, 0u);
}

TEST_F(FixedSizeQueueTest, MovesAnElementOutAndClearsItsSlot)
{
    PushNumber(queue, 1);
    PushNumber(queue, 2);
    Allocation popped = Numbered(99);
    EXPECT_TRUE(queue->Pop(popped));
    EXPECT_TRUE(Is(popped, 1));
    const QueueLayout layout = Look(queue);
    EXPECT_TRUE(IsEmpty(layout.slots[0]));
    EXPECT_TRUE(Is(layout.slots[1], 2));
    EXPECT_EQ(layout.writeCounter, 2u);
    EXPECT_EQ(layout.readCounter, 1u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(FixedSizeQueueTest, ChangesASlotAndItsCounterWithinTheirLockAlone)
{
    Lines steps;
    const auto note = [&](const char* step) {
        const QueueLayout layout = Look(queue);
        steps.push_back(std::string(step) + (IsEmpty(layout.slots[0]) ? " empty, " : " filled, ") +
                        std::to_string(layout.writeCounter) + " written, " +
                        std::to_string(layout.readCounter) + " read");
    };
    const FakeImport acquire("AcquireSRWLockExclusive",
                             [&](decltype(&AcquireSRWLockExclusive) real, PSRWLOCK lock) {
                                 note("acquired:");
                                 real(lock);
                             });
    const FakeImport release("ReleaseSRWLockExclusive",
                             [&](decltype(&ReleaseSRWLockExclusive) real, PSRWLOCK lock) {
                                 note("released:");
                                 real(lock);
                             });
    PushNumber(queue, 1);
    Allocation popped = {};
    queue->Pop(popped);
    EXPECT_EQ(steps, Lines({"acquired: empty, 0 written, 0 read", "released: filled, 1 written, 0 read",
                            "acquired: filled, 1 written, 0 read", "released: empty, 1 written, 1 read"}));
}

TEST_F(FixedSizeQueueTest, CarriesAnElementWithoutAPointerLikeAnyOther)
{
    PushNumber(queue, 1);
    Allocation stop = {};
    EXPECT_TRUE(queue->Push(stop));
    PushNumber(queue, 3);
    Allocation popped = {};
    EXPECT_TRUE(queue->Pop(popped));
    popped = Numbered(99);
    EXPECT_TRUE(queue->Pop(popped));
    EXPECT_TRUE(IsEmpty(popped));
    EXPECT_TRUE(queue->Pop(popped));
    EXPECT_TRUE(Is(popped, 3));
}

TEST_F(FixedSizeQueueTest, TakesItsCapacityAndGivesItBackInOrder)
{
    for (uint32_t i = 0; i < agentQueueCapacity; ++i)
    {
        ASSERT_TRUE(PushNumber(queue, i + 1));
    }
    for (uint32_t i = 0; i < agentQueueCapacity; ++i)
    {
        Allocation popped = {};
        ASSERT_TRUE(queue->Pop(popped));
        ASSERT_TRUE(Is(popped, i + 1));
    }
}

TEST_F(FixedSizeQueueTest, WrapsToTheFirstSlotAfterItsCapacity)
{
    Allocation popped = {};
    for (uint32_t i = 0; i < agentQueueCapacity; ++i)
    {
        PushNumber(queue, i);
        queue->Pop(popped);
    }
    PushNumber(queue, 4711);
    const QueueLayout layout = Look(queue);
    EXPECT_TRUE(Is(layout.slots[0], 4711));
    EXPECT_EQ(layout.writeCounter, 4097u);
    EXPECT_TRUE(queue->Pop(popped));
    EXPECT_TRUE(Is(popped, 4711));
}

TEST_F(FixedSizeQueueTest, KeepsTheOrderOverManyWrapsAtEveryFill)
{
    auto* small = FixedSizeQueue<uint32_t, 8>::Create();
    uint32_t pushed = 1;
    uint32_t popped = 1;
    for (uint32_t round = 0; round < 200; ++round)
    {
        const uint32_t fullest = round % 8 + 1;
        while (pushed - popped < fullest)
        {
            uint32_t element = pushed++;
            ASSERT_TRUE(small->Push(element));
            ASSERT_EQ(element, 0u);
        }
        while (pushed - popped > round % 3)
        {
            uint32_t element = 0;
            ASSERT_TRUE(small->Pop(element));
            ASSERT_EQ(element, popped++);
        }
    }
    EXPECT_GT(popped, 80 * 8u);
    FixedSizeQueue<uint32_t, 8>::Destroy(small);
}

TEST_F(FixedSizeQueueTest, CountsInSixtyFourBits)
{
    SetCounters(queue, 0xFFFFFFFF);
    PushNumber(queue, 1);
    PushNumber(queue, 2);
    QueueLayout layout = Look(queue);
    EXPECT_EQ(layout.writeCounter, 0x100000001u);
    EXPECT_TRUE(Is(layout.slots[4095], 1));
    EXPECT_TRUE(Is(layout.slots[0], 2));
    Allocation popped = {};
    queue->Pop(popped);
    EXPECT_TRUE(Is(popped, 1));
    queue->Pop(popped);
    EXPECT_TRUE(Is(popped, 2));
    layout = Look(queue);
    EXPECT_EQ(layout.readCounter, 0x100000001u);
}

TEST_F(FixedSizeQueueTest, LeavesTheOtherSidesLockAlone)
{
    PushNumber(queue, 1);
    SRWLOCK* producerLock = reinterpret_cast<SRWLOCK*>(queue);
    AcquireSRWLockExclusive(producerLock);
    Allocation popped = {};
    EXPECT_TRUE(queue->Pop(popped));
    ReleaseSRWLockExclusive(producerLock);

    SRWLOCK* consumerLock = producerLock + 1;
    AcquireSRWLockExclusive(consumerLock);
    EXPECT_TRUE(PushNumber(queue, 2));
    ReleaseSRWLockExclusive(consumerLock);
}

// Failures

TEST_F(FixedSizeQueueTest, KeepsTheCallersElementWhenTheProducersWaitFails)
{
    Allocation element = Numbered(1);
    {
        const MissingSemaphore missing(queue, offsetof(QueueLayout, producerSemaphore));
        EXPECT_FALSE(queue->Push(element));
    }
    EXPECT_TRUE(Is(element, 1));
    const QueueLayout layout = Look(queue);
    EXPECT_EQ(layout.writeCounter, 0u);
    EXPECT_TRUE(IsEmpty(layout.slots[0]));
    EXPECT_EQ(log.GetLines(), (Lines{"DBG Failed to wait on an semaphore.", "DBG Error: -1, 0xFFFFFFFF",
                                     "ERR Cannot wait for producer semaphore in fixed-size queue"}));
}

TEST_F(FixedSizeQueueTest, GivesNothingWhenTheConsumersWaitFails)
{
    PushNumber(queue, 1);
    Allocation element = Numbered(99);
    {
        const MissingSemaphore missing(queue, offsetof(QueueLayout, consumerSemaphore));
        EXPECT_FALSE(queue->Pop(element));
    }
    EXPECT_TRUE(Is(element, 99));
    const QueueLayout layout = Look(queue);
    EXPECT_EQ(layout.readCounter, 0u);
    EXPECT_TRUE(Is(layout.slots[0], 1));
    EXPECT_EQ(log.GetLines(), (Lines{"DBG Failed to wait on an semaphore.", "DBG Error: -1, 0xFFFFFFFF",
                                     "ERR Cannot wait for consumer semaphore in fixed-size queue"}));
}

TEST_F(FixedSizeQueueTest, HoldsAnElementWithoutASignalToTheConsumers)
{
    ASSERT_TRUE(ReleaseSemaphore(Consumer(), agentQueueCapacity, nullptr)); // no room for another signal
    Allocation element = Numbered(1);
    EXPECT_FALSE(queue->Push(element));
    EXPECT_TRUE(IsEmpty(element));
    EXPECT_TRUE(Is(Look(queue).slots[0], 1));
    EXPECT_EQ(log.GetLines(), (Lines{"DBG ReleaseSemaphore() failed.", OSErrorLine(ERROR_TOO_MANY_POSTS),
                                     "ERR Cannot signal consumer semaphore in fixed-size queue"}));
}

TEST_F(FixedSizeQueueTest, FailsAPopWhoseSlotCannotBeSignalledFree)
{
    PushNumber(queue, 1);
    ASSERT_TRUE(ReleaseSemaphore(Producer(), 1, nullptr));
    Allocation element = {};
    EXPECT_FALSE(queue->Pop(element));
    EXPECT_TRUE(IsEmpty(Look(queue).slots[0]));
    EXPECT_EQ(log.GetLines(), (Lines{"DBG ReleaseSemaphore() failed.", OSErrorLine(ERROR_TOO_MANY_POSTS),
                                     "ERR Cannot signal producer semaphore in fixed-size queue"}));
}

// Creation and destruction

TEST(FixedSizeQueueLife, CreatesAFullAndAnEmptySemaphoreWithoutNames)
{
    struct Arguments
    {
        bool plain;
        LONG initial;
        LONG maximum;
    };
    const TestMemorySystem memory;
    std::vector<Arguments> calls;
    const FakeImport create("CreateSemaphoreW",
                            [&](decltype(&CreateSemaphoreW) real, LPSECURITY_ATTRIBUTES attributes,
                                LONG initial, LONG maximum, LPCWSTR name) {
                                calls.push_back({attributes == nullptr && name == nullptr, initial, maximum});
                                return real(attributes, initial, maximum, name);
                            });
    AgentQueue* queue = AgentQueue::Create();
    AgentQueue::Destroy(queue);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[0].plain && calls[0].initial == 4096 && calls[0].maximum == 4096);
    EXPECT_TRUE(calls[1].plain && calls[1].initial == 0 && calls[1].maximum == 4096);
}

TEST(FixedSizeQueueLife, PanicsWithoutSemaphoresAndKeepsTheErrorInTheirPlace)
{
    constexpr DWORD error = 0x7FFFFF11; // a code that is no handle, and that the OS has no text for
    const TestMemorySystem memory;
    const RecordedLog log;
    const FakeImport create("CreateSemaphoreW",
                            [](decltype(&CreateSemaphoreW), LPSECURITY_ATTRIBUTES, LONG, LONG, LPCWSTR) {
                                SetLastError(error);
                                return HANDLE{nullptr};
                            });
    AgentQueue* queue = AgentQueue::Create();
    EXPECT_EQ(
        log.GetLines(),
        (Lines{"DBG CreateSemaphoreW(Queue producer) failed.", "DBG Error: 2147483409, 0x7FFFFF11: unknown",
               "PNC Cannot create semaphore for FixedSizeQueue",
               "DBG CreateSemaphoreW(Queue consumer) failed.", "DBG Error: 2147483409, 0x7FFFFF11: unknown",
               "PNC Cannot create semaphore for FixedSizeQueue"}));
    const QueueLayout layout = Look(queue);
    EXPECT_EQ(layout.producerSemaphore, reinterpret_cast<HANDLE>(error));
    EXPECT_EQ(layout.consumerSemaphore, reinterpret_cast<HANDLE>(error));
    AgentQueue::Destroy(queue);
}

TEST(FixedSizeQueueLife, ClosesItsSemaphoresBeforeItGivesItsBlockBack)
{
    const TestMemorySystem memory;
    std::unique_ptr<QueueLayout> last;
    AgentQueue* queue = AgentQueue::Create();
    const void* block = queue;
    const QueueLayout before = Look(queue);
    DWORD information = 0;
    EXPECT_TRUE(GetHandleInformation(before.producerSemaphore, &information));
    EXPECT_TRUE(GetHandleInformation(before.consumerSemaphore, &information));
    {
        const FakeImport free("HeapFree",
                              [&](decltype(&HeapFree) real, HANDLE heap, DWORD flags, LPVOID pointer) {
                                  if (pointer == block)
                                  {
                                      last = std::make_unique<QueueLayout>(Look(pointer));
                                  }
                                  return real(heap, flags, pointer);
                              });
        AgentQueue::Destroy(queue);
    }
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->producerSemaphore, INVALID_HANDLE_VALUE);
    EXPECT_EQ(last->consumerSemaphore, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(GetHandleInformation(before.producerSemaphore, &information));
    EXPECT_FALSE(GetHandleInformation(before.consumerSemaphore, &information));
}

TEST(FixedSizeQueueLife, DoesNotLookAtElementsThatWereNeverTaken)
{
    const TestMemorySystem memory;
    AgentQueue* queue = AgentQueue::Create();
    for (uint32_t i = 0; i < 10; ++i)
    {
        EXPECT_TRUE(PushNumber(queue, i)); // what these point to can be neither read nor freed
    }
    AgentQueue::Destroy(queue);
    EXPECT_EQ(queue, nullptr);
}
} // namespace Torvane::Testing
