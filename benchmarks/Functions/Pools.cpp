// Benchmark 5: what the memory system's pools cost, and what other allocators cost.
#include "Functions.h"

#include "Shared/Memory/MemorySystem.h"
#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"

#include "../Support/Random.h"

#include <atomic>
#include <mimalloc.h>
#include <stdlib.h>
#include <vector>
#include <windows.h>

namespace Torvane
{
namespace
{
constexpr uint32_t batchSize = 256;
constexpr uint32_t workingSet = 1024;
constexpr uint32_t largestBlock = 1024;

struct Ours
{
    static constexpr const char* name = "ours";
    static void* Allocate(uint32_t size)
    {
        return Torvane::Allocate(size).pointer;
    }
    static void Free(void* block, uint32_t size)
    {
        Torvane::Free(block, size);
    }
};

HANDLE privateHeap;

struct PrivateHeap
{
    static constexpr const char* name = "HeapAlloc";
    static void* Allocate(uint32_t size)
    {
        return HeapAlloc(privateHeap, 0, size);
    }
    static void Free(void* block, uint32_t)
    {
        HeapFree(privateHeap, 0, block);
    }
};

struct Runtime
{
    static constexpr const char* name = "malloc";
    static void* Allocate(uint32_t size)
    {
        return malloc(size);
    }
    static void Free(void* block, uint32_t)
    {
        free(block);
    }
};

struct MiMalloc
{
    static constexpr const char* name = "mimalloc";
    static void* Allocate(uint32_t size)
    {
        return mi_malloc(size);
    }
    static void Free(void* block, uint32_t)
    {
        mi_free(block);
    }
};

CRITICAL_SECTION lockAlone;

/// No allocator: only the lock that the pools enter and leave, once for each allocation and each free.
struct LockAlone
{
    [[maybe_unused]] static constexpr const char* name = "the lock alone";
    static void* Allocate(uint32_t)
    {
        static char block[largestBlock];
        EnterCriticalSection(&lockAlone);
        LeaveCriticalSection(&lockAlone);
        return block;
    }
    static void Free(void*, uint32_t)
    {
        EnterCriticalSection(&lockAlone);
        LeaveCriticalSection(&lockAlone);
    }
};

/// The first word is written, as the first use of a block does.
template<typename Side>
void* AllocateAndTouch(uint32_t size)
{
    void* block = Side::Allocate(size);
    *static_cast<volatile char*>(block) = 1;
    return block;
}

/// A batch of blocks of one size, then all of them freed, the oldest first.
template<typename Side>
void Batches(benchmark::State& state, uint32_t size)
{
    void* blocks[batchSize];
    const auto runBatch = [&] {
        for (void*& block : blocks)
        {
            block = AllocateAndTouch<Side>(size);
        }
        for (void* block : blocks)
        {
            Side::Free(block, size);
        }
    };
    runBatch();
    for (auto _ : state)
    {
        runBatch();
    }
    state.SetItemsProcessed(state.iterations() * batchSize);
}

/// Sizes of 1 to 1024 bytes, small ones more often. The same for every side and thread.
std::vector<uint16_t> MakeSizes()
{
    std::vector<uint16_t> sizes(4096);
    Benchmarks::Random random;
    for (uint16_t& size : sizes)
    {
        const uint32_t range = 8U << random.Below(8);
        size = static_cast<uint16_t>(1 + random.Below(range));
    }
    return sizes;
}

/// A set of 1024 live blocks of many sizes. Again and again one of them is freed and another allocated.
template<typename Side>
void Mixed(benchmark::State& state)
{
    static const std::vector<uint16_t> sizes = MakeSizes();
    struct Slot
    {
        void* block;
        uint32_t size;
    };
    std::vector<Slot> slots(workingSet);
    uint32_t position = static_cast<uint32_t>(state.thread_index()) * 97;
    const auto fill = [&](Slot& slot) {
        slot.size = sizes[position++ % sizes.size()];
        slot.block = AllocateAndTouch<Side>(slot.size);
    };
    for (Slot& slot : slots)
    {
        fill(slot);
    }
    uint32_t victim = 0;
    const auto runBatch = [&] {
        for (uint32_t i = 0; i < batchSize; ++i)
        {
            victim = victim * 1664525 + 1013904223;
            Slot& slot = slots[victim >> 22];
            Side::Free(slot.block, slot.size);
            fill(slot);
        }
    };
    // Until every size has its memory, and pages are there.
    for (size_t i = 0; i < 2 * sizes.size() / batchSize; ++i)
    {
        runBatch();
    }
    for (auto _ : state)
    {
        runBatch();
    }
    state.SetItemsProcessed(state.iterations() * batchSize);
    for (Slot& slot : slots)
    {
        Side::Free(slot.block, slot.size);
    }
}
static_assert(workingSet == 1U << (32 - 22));

/// Where one thread leaves batches for the next.
struct Mailbox
{
    static constexpr uint32_t depth = 8;
    std::atomic<uint32_t> produced;
    std::atomic<uint32_t> consumed;
    void* blocks[depth][batchSize];
};
constexpr int mostThreads = 8;
Mailbox mailboxes[mostThreads];

/// Every thread allocates batches that the next thread frees.
template<typename Side>
void AcrossThreads(benchmark::State& state, uint32_t size)
{
    Mailbox& own = mailboxes[state.thread_index()];
    Mailbox& next = mailboxes[(state.thread_index() + 1) % state.threads()];
    for (auto _ : state)
    {
        const uint32_t put = own.produced.load(std::memory_order_relaxed);
        while (put - own.consumed.load(std::memory_order_acquire) == Mailbox::depth)
        {
            SwitchToThread();
        }
        for (void*& block : own.blocks[put % Mailbox::depth])
        {
            block = AllocateAndTouch<Side>(size);
        }
        own.produced.store(put + 1, std::memory_order_release);

        const uint32_t take = next.consumed.load(std::memory_order_relaxed);
        while (next.produced.load(std::memory_order_acquire) == take)
        {
            SwitchToThread();
        }
        for (void* block : next.blocks[take % Mailbox::depth])
        {
            Side::Free(block, size);
        }
        next.consumed.store(take + 1, std::memory_order_release);
    }
    state.SetItemsProcessed(state.iterations() * batchSize);
}

int64_t Scaled(double scale, int threads)
{
    return static_cast<int64_t>(2000 * scale / (threads == 1 ? 1 : 2));
}

/// Adds a case for every allocator. `run` is called with a value of the side's type and the state.
template<typename Run>
void AddCase(const std::string& name, int threads, double scale, Run run)
{
    const auto add = [&](auto side) {
        const std::string start = "5|" + name + Count(static_cast<uint32_t>(threads), "thread") + "|";
        AddBenchmark(start + decltype(side)::name, threads, Scaled(scale, threads),
                     [=](benchmark::State& state) { run(side, state); });
    };
    add(Ours{});
    add(PrivateHeap{});
    add(Runtime{});
    add(MiMalloc{});
}

void AddBatches(uint32_t size, int threads, double scale)
{
    AddCase(std::to_string(size) + " B, ", threads, scale,
            [size](auto side, benchmark::State& state) { Batches<decltype(side)>(state, size); });
}
} // namespace

void AddPools(double scale)
{
    privateHeap = HeapCreate(0, 0x8000000, 0);
    InitializeCriticalSection(&lockAlone);
    for (uint32_t size = 8; size <= largestBlock; size *= 2)
    {
        AddBatches(size, 1, scale);
    }
    for (int threads = 2; threads <= mostThreads; threads *= 2)
    {
        AddBatches(64, threads, scale);
    }
    AddBenchmark(std::string("5|64 B, 1 thread|") + LockAlone::name, 1, Scaled(scale, 1),
                 [](benchmark::State& state) { Batches<LockAlone>(state, 64); });
    for (int threads = 1; threads <= mostThreads; threads *= 2)
    {
        AddCase("mixed sizes, ", threads, scale,
                [](auto side, benchmark::State& state) { Mixed<decltype(side)>(state); });
    }
    for (int threads = 2; threads <= mostThreads; threads *= 2)
    {
        AddCase("64 B freed by another, ", threads, scale,
                [](auto side, benchmark::State& state) { AcrossThreads<decltype(side)>(state, 64); });
    }
}
} // namespace Torvane
