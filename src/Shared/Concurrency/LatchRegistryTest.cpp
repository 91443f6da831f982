#include "Shared/Concurrency/LatchRegistry.h"

#include "Shared/Memory/MemorySystem.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestMemorySystem.h"
#include "tests/Support/TestThread.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

class LatchRegistryTest : public testing::Test
{
protected:
    LatchRegistryTest()
    {
        registry.Create();
    }

    ~LatchRegistryTest() override
    {
        registry.Destroy();
    }

    static bool IsSignalled(Latch& latch)
    {
        return latch.event.TryWait();
    }

    TestMemorySystem memory;
    RecordedLog log;
    LatchRegistry registry;
};

class RegisteredLatch : public Latch
{
public:
    RegisteredLatch(LatchRegistry& latchRegistry, uint32_t initialCount)
        : Latch(initialCount)
        , registry(latchRegistry)
    {
        registry.Register(*this);
    }

    ~RegisteredLatch()
    {
        registry.Unregister(*this);
    }

    RegisteredLatch(const RegisteredLatch&) = delete;
    RegisteredLatch& operator=(const RegisteredLatch&) = delete;

private:
    LatchRegistry& registry;
};

constexpr LONG wrapped = -1; // 0xFFFFFFFF
} // namespace

// Creation

TEST(LatchRegistry, IsMadeAndUnmadeInOneOrder)
{
    const TestMemorySystem memory;
    Lines calls;
    HANDLE event = nullptr;
    const FakeImport createEvent("CreateEventW",
                                 [&](decltype(&CreateEventW) real, LPSECURITY_ATTRIBUTES attributes,
                                     BOOL manualReset, BOOL signalled, LPCWSTR name) {
                                     calls.push_back("CreateEventW");
                                     return event = real(attributes, manualReset, signalled, name);
                                 });
    const FakeImport closeHandle("CloseHandle", [&](decltype(&CloseHandle) real, HANDLE handle) {
        EXPECT_EQ(handle, event);
        calls.push_back("CloseHandle");
        return real(handle);
    });
    const FakeImport initialize("InitializeCriticalSection",
                                [&](decltype(&InitializeCriticalSection) real, LPCRITICAL_SECTION lock) {
                                    calls.push_back("InitializeCriticalSection");
                                    real(lock);
                                });
    const FakeImport remove("DeleteCriticalSection",
                            [&](decltype(&DeleteCriticalSection) real, LPCRITICAL_SECTION lock) {
                                calls.push_back("DeleteCriticalSection");
                                real(lock);
                            });
    const FakeImport allocate("HeapAlloc",
                              [&](decltype(&HeapAlloc) real, HANDLE heap, DWORD flags, SIZE_T size) {
                                  calls.push_back("HeapAlloc " + std::to_string(size));
                                  return real(heap, flags, size);
                              });
    const FakeImport free("HeapFree", [&](decltype(&HeapFree) real, HANDLE heap, DWORD flags, LPVOID block) {
        calls.push_back("HeapFree");
        return real(heap, flags, block);
    });
    LatchRegistry registry;
    registry.Create();
    EXPECT_EQ(calls, (Lines{"CreateEventW", "InitializeCriticalSection", "HeapAlloc 16384"}));
    calls.clear();
    registry.Destroy();
    EXPECT_EQ(calls, (Lines{"CloseHandle", "DeleteCriticalSection", "HeapFree"}));
}

TEST(LatchRegistry, IsEmptyWhenItIsMadeWhateverItsMemoryHolds)
{
    const TestMemorySystem memory;
    Latch stale(3);
    LatchRegistry registry;
    {
        const FakeImport allocate("HeapAlloc",
                                  [&](decltype(&HeapAlloc) real, HANDLE heap, DWORD flags, SIZE_T size) {
                                      void* block = real(heap, flags, size);
                                      std::fill_n(static_cast<Latch**>(block), size / sizeof(Latch*), &stale);
                                      return block;
                                  });
        registry.Create();
        registry.DecrementByAddress(&stale);
        EXPECT_EQ(stale.count, 3);
        registry.Register(stale);
        registry.Destroy();
        registry.Create();
    }
    registry.DecrementByAddress(&stale);
    EXPECT_EQ(stale.count, 3) << "It was registered before.";
    registry.Destroy();
    stale.event.Destroy();
}

TEST(LatchRegistry, PanicsWithoutAnEvent)
{
    const TestMemorySystem memory;
    const RecordedLog log;
    LatchRegistry registry;
    {
        const FakeImport create(
            "CreateEventW",
            [](decltype(&CreateEventW), LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
                SetLastError(0x7FFFFF11);
                return nullptr;
            });
        registry.Create();
    }
    EXPECT_EQ(log.GetLines(),
              (Lines{"DBG CreateEventW(Cannot wait for latches) failed.",
                     "DBG Error: 2147483409, 0x7FFFFF11: unknown", "PNC Cannot create event for startup"}));
    registry.Destroy();
}

// Counting down

TEST_F(LatchRegistryTest, SignalsALatchWithTheStepFromOne)
{
    RegisteredLatch latch(registry, 3);
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, 2);
    EXPECT_FALSE(IsSignalled(latch));
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, 1);
    EXPECT_FALSE(IsSignalled(latch));
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, 0);
    EXPECT_TRUE(IsSignalled(latch));
}

TEST_F(LatchRegistryTest, WrapsBelowZeroWithoutASignal)
{
    RegisteredLatch latch(registry, 0);
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, wrapped);
    EXPECT_FALSE(IsSignalled(latch));
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, wrapped - 1);
    EXPECT_FALSE(IsSignalled(latch));
}

TEST_F(LatchRegistryTest, ContinuesCountingAfterTheSignal)
{
    RegisteredLatch latch(registry, 1);
    registry.DecrementByAddress(&latch);
    latch.event.Reset();
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, wrapped);
    EXPECT_FALSE(IsSignalled(latch));
}

TEST_F(LatchRegistryTest, CountsDownOnlyTheLatchAtTheAddress)
{
    RegisteredLatch first(registry, 1);
    RegisteredLatch second(registry, 1);
    RegisteredLatch third(registry, 1);
    registry.DecrementByAddress(&second);
    EXPECT_FALSE(IsSignalled(first));
    EXPECT_TRUE(IsSignalled(second));
    EXPECT_FALSE(IsSignalled(third));
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(third.count, 1);
}

TEST_F(LatchRegistryTest, DoesNothingForAddressesThatAreNotRegistered)
{
    Latch stranger(1);
    const auto decrementWildly = [&] {
        registry.DecrementByAddress(nullptr);
        registry.DecrementByAddress(&stranger);
        for (const uintptr_t address : {uintptr_t{1}, uintptr_t{0x1000}, uintptr_t{0xFFFFFFFF}})
        {
            registry.DecrementByAddress(reinterpret_cast<const void*>(address));
        }
    };
    decrementWildly(); // with an empty list
    {
        RegisteredLatch latch(registry, 1);
        decrementWildly();
        registry.DecrementByAddress(&latch.event);
        registry.DecrementByAddress(reinterpret_cast<const char*>(&latch) + 1);
        EXPECT_EQ(latch.count, 1);
        EXPECT_FALSE(IsSignalled(latch));
    }
    decrementWildly(); // with a list that has become empty
    EXPECT_EQ(stranger.count, 1);
    EXPECT_FALSE(IsSignalled(stranger));
    stranger.event.Destroy();
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(LatchRegistryTest, WakesTheThreadThatWaits)
{
    RegisteredLatch latch(registry, 2);
    const TestThread waiting([&] { latch.Wait(); });
    registry.DecrementByAddress(&latch);
    EXPECT_FALSE(waiting.WaitForEnd(quietPeriod));
    registry.DecrementByAddress(&latch);
    EXPECT_TRUE(waiting.WaitForEnd());
}

// Unregistering

TEST_F(LatchRegistryTest, ForgetsALatchAndClosesItsEvent)
{
    Latch latch(1);
    registry.Register(latch);
    const HANDLE event = latch.event.handle;
    registry.Unregister(latch);
    EXPECT_EQ(latch.event.handle, INVALID_HANDLE_VALUE);
    DWORD information = 0;
    EXPECT_FALSE(GetHandleInformation(event, &information));
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, 1);
}

TEST_F(LatchRegistryTest, KeepsTheOthersInWhateverOrderLatchesGo)
{
    constexpr uint32_t latchCount = 4;
    uint32_t order[latchCount] = {0, 1, 2, 3};
    do
    {
        std::unique_ptr<Latch> latches[latchCount];
        for (auto& latch : latches)
        {
            latch = std::make_unique<Latch>(100);
            registry.Register(*latch);
        }
        for (uint32_t gone = 0; gone < latchCount; ++gone)
        {
            const void* address = latches[order[gone]].get();
            registry.Unregister(*latches[order[gone]]);
            registry.DecrementByAddress(address);
            EXPECT_EQ(latches[order[gone]]->count, static_cast<LONG>(100 - gone));
            for (uint32_t other = gone + 1; other < latchCount; ++other)
            {
                Latch& latch = *latches[order[other]];
                registry.DecrementByAddress(&latch);
                EXPECT_EQ(latch.count, static_cast<LONG>(100 - gone - 1));
            }
        }
    }
    while (std::next_permutation(order, order + latchCount));
}

TEST_F(LatchRegistryTest, ClosesTheEventOfALatchThatWasNeverRegistered)
{
    RegisteredLatch registered(registry, 1);
    Latch latch(1);
    registry.Unregister(latch);
    EXPECT_EQ(latch.event.handle, INVALID_HANDLE_VALUE);
    registry.DecrementByAddress(&registered);
    EXPECT_EQ(registered.count, 0);
}

TEST_F(LatchRegistryTest, HasRoomForAllThatItPromises)
{
    std::vector<std::unique_ptr<RegisteredLatch>> latches;
    for (uint32_t i = 0; i < 4096; ++i)
    {
        latches.push_back(std::make_unique<RegisteredLatch>(registry, 2));
    }
    registry.DecrementByAddress(latches.front().get());
    registry.DecrementByAddress(latches.back().get());
    EXPECT_EQ(latches.front()->count, 1);
    EXPECT_EQ(latches.back()->count, 1);
    registry.ReleaseAll();
    for (const auto& latch : latches)
    {
        ASSERT_EQ(latch->count, 0);
    }
}

// The end of the link

TEST_F(LatchRegistryTest, ReleasesAllLatchesAtOnce)
{
    RegisteredLatch first(registry, 1);
    RegisteredLatch second(registry, 7);
    const TestThread waiting([&] { first.Wait(); });
    const TestThread alsoWaiting([&] { second.Wait(); });
    registry.ReleaseAll();
    EXPECT_TRUE(waiting.WaitForEnd());
    EXPECT_TRUE(alsoWaiting.WaitForEnd());
    EXPECT_EQ(first.count, 0);
    EXPECT_EQ(second.count, 0);
}

TEST_F(LatchRegistryTest, IsEmptyAfterTheRelease)
{
    RegisteredLatch latch(registry, 1);
    registry.ReleaseAll();
    latch.event.Reset();
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, 0);
    registry.ReleaseAll();
    EXPECT_FALSE(IsSignalled(latch));
}

TEST_F(LatchRegistryTest, ReleasesALatchThatComesTooLateWithoutEnteringIt)
{
    registry.ReleaseAll();
    RegisteredLatch latch(registry, 5);
    EXPECT_EQ(latch.count, 0);
    EXPECT_TRUE(IsSignalled(latch));
    latch.Wait();
    registry.DecrementByAddress(&latch);
    EXPECT_EQ(latch.count, 0);
    EXPECT_EQ(log.GetLines(), Lines());
}

// Threads

TEST_F(LatchRegistryTest, HoldsItsLockForEveryOperation)
{
    CRITICAL_SECTION* lock = reinterpret_cast<CRITICAL_SECTION*>(&registry);
    RegisteredLatch registered(registry, 5);
    Latch late(5);
    Latch leaving(5);
    registry.Register(leaving);
    const std::function<void()> operations[] = {
        [&] { registry.Register(late); }, [&] { registry.DecrementByAddress(&registered); },
        [&] { registry.DecrementByAddress(nullptr); }, [&] { registry.Unregister(leaving); },
        [&] {
            registry.ReleaseAll();
        }};
    for (const auto& operation : operations)
    {
        EnterCriticalSection(lock);
        const TestThread thread(operation);
        EXPECT_FALSE(thread.WaitForEnd(quietPeriod));
        LeaveCriticalSection(lock);
        EXPECT_TRUE(thread.WaitForEnd());
    }
    EXPECT_EQ(registered.count, 0);
    EXPECT_EQ(late.count, 0);
    EXPECT_EQ(leaving.count, 5);
    late.event.Destroy();
}

TEST_F(LatchRegistryTest, ServesManyWaitersWhileStaleAddressesComeIn)
{
    constexpr uint32_t threadCount = 4;
    constexpr uint32_t rounds = 200;
    std::atomic<const void*> wanted[threadCount] = {};
    std::atomic<uintptr_t> stale[threadCount] = {};
    std::atomic<bool> ends = false;
    std::atomic<uint32_t> served = 0;
    const TestThread bridge([&] {
        while (!ends)
        {
            for (uint32_t i = 0; i < threadCount; ++i)
            {
                if (const void* address = wanted[i].exchange(nullptr))
                {
                    registry.DecrementByAddress(address);
                    registry.DecrementByAddress(address);
                }
                // Not the address itself: the thread's next latch may be there by now.
                registry.DecrementByAddress(reinterpret_cast<const void*>(stale[i] + 1));
            }
            SwitchToThread();
        }
    });
    {
        std::vector<std::unique_ptr<TestThread>> waiters;
        for (uint32_t i = 0; i < threadCount; ++i)
        {
            waiters.push_back(std::make_unique<TestThread>([&, i] {
                for (uint32_t round = 0; round < rounds; ++round)
                {
                    Latch latch(2);
                    registry.Register(latch);
                    wanted[i] = &latch;
                    latch.Wait();
                    served += latch.count == 0 ? 1 : 0;
                    registry.Unregister(latch);
                    stale[i] = reinterpret_cast<uintptr_t>(&latch);
                }
            }));
        }
    }
    ends = true;
    EXPECT_TRUE(bridge.WaitForEnd());
    EXPECT_EQ(served, threadCount * rounds);
    EXPECT_EQ(log.GetLines(), Lines());
}
} // namespace Torvane::Testing
