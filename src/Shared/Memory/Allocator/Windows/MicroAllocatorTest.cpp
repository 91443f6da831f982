#include "Shared/Memory/Allocator/Windows/MicroAllocator.h"

#include "tests/Support/RecordedHeapCalls.h"
#include "tests/Support/TestThread.h"

#include <string.h>

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <vector>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t chunkSize = 0x100000;

/// The layout of the fields in memory.
struct PoolLayout
{
    CRITICAL_SECTION lock;
    HANDLE heap;
    void* freeList;
    uint32_t blockSize;
    uint32_t alignment;
    uint32_t chunkSize;
    void* chunkList;
};
static_assert(sizeof(PoolLayout) == 48);

struct AllocatorLayout
{
    HANDLE heap;
    Allocation pools[128];
    void* sizeTable[1025];
    PoolLayout storage[128];
};
static_assert(sizeof(AllocatorLayout) == sizeof(MicroAllocator));

uintptr_t AddressOf(const void* pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

void* FirstWordOf(const void* block)
{
    void* word = nullptr;
    memcpy(&word, block, sizeof(word));
    return word;
}

uint32_t StrideOf(uint32_t blockSize)
{
    return (blockSize + 15) & ~15u;
}

/// How many blocks a chunk has where the heap gave it, which may be no multiple of 16.
uint32_t BlocksOf(const void* chunk, uint32_t stride)
{
    const uintptr_t first = (AddressOf(chunk) + stride + 15) & ~uintptr_t{15};
    return static_cast<uint32_t>((AddressOf(chunk) + chunkSize - first) / stride);
}

class MicroAllocatorTest : public testing::Test
{
protected:
    MicroAllocatorTest()
    {
        memset(static_cast<void*>(&allocator), 0xCC, sizeof(allocator));
        allocator.StartupHeap();
        allocator.StartupPools();
    }

    ~MicroAllocatorTest() override
    {
        allocator.ShutdownPools();
        allocator.ShutdownHeap();
    }

    std::unique_ptr<AllocatorLayout> Look() const
    {
        auto layout = std::make_unique<AllocatorLayout>();
        memcpy(static_cast<void*>(layout.get()), &allocator, sizeof(allocator));
        return layout;
    }

    PoolLayout Look(uint32_t pool) const
    {
        return Look()->storage[pool];
    }

    /// The pool's lock itself.
    CRITICAL_SECTION* LockOf(uint32_t pool) const
    {
        return static_cast<CRITICAL_SECTION*>(Look()->pools[pool].pointer);
    }

    size_t CountChunks() const
    {
        return heaps.GetCalls("HeapAlloc").size();
    }

    RecordedHeapCalls heaps;
    MicroAllocator allocator;
};
} // namespace

// Startup

TEST_F(MicroAllocatorTest, HasAHeapOfItsOwn)
{
    const auto created = heaps.GetCalls("HeapCreate");
    ASSERT_EQ(created.size(), 1u);
    EXPECT_EQ(created[0].flags, 0u);
    EXPECT_EQ(created[0].size, 0x8000000u);
    EXPECT_EQ(created[0].maximumSize, 0u);
    EXPECT_EQ(Look()->heap, created[0].heap);
}

TEST_F(MicroAllocatorTest, HasAPoolForEveryEightBytes)
{
    const auto layout = Look();
    const uintptr_t storage = AddressOf(&allocator) + offsetof(AllocatorLayout, storage);
    for (uint32_t i = 0; i < 128; ++i)
    {
        SCOPED_TRACE(i);
        EXPECT_EQ(AddressOf(layout->pools[i].pointer), storage + 48 * i);
        EXPECT_EQ(layout->pools[i].size, 48u);
        const PoolLayout& pool = layout->storage[i];
        EXPECT_EQ(pool.blockSize, 8 * (i + 1));
        EXPECT_EQ(pool.alignment, 16u);
        EXPECT_EQ(pool.chunkSize, chunkSize);
        EXPECT_EQ(pool.heap, layout->heap);
        EXPECT_EQ(pool.freeList, nullptr);
        EXPECT_EQ(pool.chunkList, nullptr);
    }
}

TEST_F(MicroAllocatorTest, FindsThePoolOfASizeInItsTable)
{
    const auto layout = Look();
    EXPECT_EQ(layout->sizeTable[0], layout->pools[0].pointer);
    for (uint32_t size = 1; size <= 1024; ++size)
    {
        ASSERT_EQ(layout->sizeTable[size], layout->pools[(size - 1) / 8].pointer) << size;
    }
    EXPECT_EQ(layout->sizeTable[8], layout->pools[0].pointer);
    EXPECT_EQ(layout->sizeTable[9], layout->pools[1].pointer);
    EXPECT_EQ(layout->sizeTable[16], layout->pools[1].pointer);
    EXPECT_EQ(layout->sizeTable[17], layout->pools[2].pointer);
    EXPECT_EQ(layout->sizeTable[1016], layout->pools[126].pointer);
    EXPECT_EQ(layout->sizeTable[1024], layout->pools[127].pointer);
}

TEST_F(MicroAllocatorTest, TakesNoChunkUntilABlockIsWanted)
{
    EXPECT_EQ(CountChunks(), 0u);
}

// Blocks

TEST_F(MicroAllocatorTest, GivesBlocksOfEverySizeFromAChunkForEachClass)
{
    for (uint32_t size = 0; size <= 1024; ++size)
    {
        SCOPED_TRACE(size);
        const Allocation first = allocator.Allocate(size);
        const Allocation second = allocator.Allocate(size);
        ASSERT_EQ(first.size, size);
        ASSERT_EQ(AddressOf(first.pointer) % 16, 0u);
        const uint32_t blockSize = size == 0 ? 8 : (size + 7) & ~7u;
        ASSERT_EQ(AddressOf(second.pointer) - AddressOf(first.pointer), StrideOf(blockSize));
        ASSERT_EQ(CountChunks(), size == 0 ? 1 : (size - 1) / 8 + 1);
    }
    for (const HeapCall& chunk : heaps.GetCalls("HeapAlloc"))
    {
        EXPECT_EQ(chunk.heap, Look()->heap);
        EXPECT_EQ(chunk.flags, 0u);
        EXPECT_EQ(chunk.size, chunkSize);
    }
}

TEST_F(MicroAllocatorTest, TakesTheNextChunkWhenAllBlocksOfTheFirstAreUsed)
{
    for (const uint32_t blockSize : {8u, 16u, 24u, 520u, 1016u, 1024u})
    {
        SCOPED_TRACE(blockSize);
        const uint32_t stride = StrideOf(blockSize);
        heaps.Clear();
        uint8_t* block = static_cast<uint8_t*>(allocator.Allocate(blockSize).pointer);
        ASSERT_EQ(CountChunks(), 1u);
        const void* chunk = heaps.GetCalls()[0].pointer;
        ASSERT_EQ(AddressOf(block), (AddressOf(chunk) + stride + 15) & ~uintptr_t{15});
        const uint32_t blocks = BlocksOf(chunk, stride);
        for (uint32_t i = 1; i < blocks; ++i)
        {
            ASSERT_EQ(allocator.Allocate(blockSize).pointer, block + i * stride);
        }
        ASSERT_EQ(CountChunks(), 1u);
        ASSERT_EQ(Look(blockSize / 8 - 1).freeList, nullptr);

        const void* next = allocator.Allocate(blockSize).pointer;
        ASSERT_EQ(CountChunks(), 2u);
        const void* second = heaps.GetCalls()[1].pointer;
        EXPECT_EQ(AddressOf(next), (AddressOf(second) + stride + 15) & ~uintptr_t{15});
        EXPECT_EQ(Look(blockSize / 8 - 1).chunkList, second);
        EXPECT_EQ(FirstWordOf(second), chunk);
        EXPECT_EQ(FirstWordOf(chunk), nullptr);
    }
}

TEST_F(MicroAllocatorTest, GivesOutNoBlockTwice)
{
    std::set<void*> blocks;
    for (uint32_t i = 0; i < 3000; ++i)
    {
        void* block = allocator.Allocate(1024).pointer;
        memset(block, 0xAB, 1024);
        ASSERT_TRUE(blocks.insert(block).second);
    }
    EXPECT_EQ(CountChunks(), 3u);
}

TEST_F(MicroAllocatorTest, GivesTheBlockThatWasFreedLastFirst)
{
    void* blocks[3] = {};
    for (void*& block : blocks)
    {
        block = allocator.Allocate(40).pointer;
    }
    const void* head = Look(4).freeList;
    allocator.Free(blocks[1], 40);
    EXPECT_EQ(Look(4).freeList, blocks[1]);
    EXPECT_EQ(FirstWordOf(blocks[1]), head);
    allocator.Free(blocks[0], 40);
    EXPECT_EQ(FirstWordOf(blocks[0]), blocks[1]);
    allocator.Free(blocks[2], 40);

    EXPECT_EQ(allocator.Allocate(40).pointer, blocks[2]);
    EXPECT_EQ(allocator.Allocate(40).pointer, blocks[0]);
    EXPECT_EQ(allocator.Allocate(40).pointer, blocks[1]);
    EXPECT_EQ(allocator.Allocate(40).pointer, head);
}

TEST_F(MicroAllocatorTest, ReusesABlockForEverySizeOfItsClassAndForNoOther)
{
    void* block = allocator.Allocate(9).pointer;
    allocator.Free(block, 9);
    EXPECT_NE(allocator.Allocate(8).pointer, block);
    EXPECT_NE(allocator.Allocate(17).pointer, block);
    EXPECT_EQ(allocator.Allocate(16).pointer, block);

    void* empty = allocator.Allocate(0).pointer;
    allocator.Free(empty, 0);
    EXPECT_EQ(allocator.Allocate(8).pointer, empty);
}

TEST_F(MicroAllocatorTest, ClearsNothing)
{
    char* block = static_cast<char*>(allocator.Allocate(512).pointer);
    memset(block, 0x5A, 512);
    allocator.Free(block, 512);
    ASSERT_EQ(allocator.Allocate(512).pointer, block);
    for (uint32_t i = sizeof(void*); i < 512; ++i)
    {
        ASSERT_EQ(block[i], 0x5A);
    }
}

TEST_F(MicroAllocatorTest, GivesNothingBackToTheHeapBeforeShutdown)
{
    std::vector<void*> blocks;
    for (uint32_t i = 0; i < 2500; ++i)
    {
        blocks.push_back(allocator.Allocate(1000).pointer);
    }
    for (void* block : blocks)
    {
        allocator.Free(block, 1000);
    }
    EXPECT_EQ(CountChunks(), 3u);
    EXPECT_TRUE(heaps.GetCalls("HeapFree").empty());
    for (size_t i = blocks.size(); i != 0; --i)
    {
        ASSERT_EQ(allocator.Allocate(1000).pointer, blocks[i - 1]);
    }
    EXPECT_EQ(CountChunks(), 3u);
}

// Locks

TEST_F(MicroAllocatorTest, LocksEachPoolByItself)
{
    void* block = allocator.Allocate(24).pointer;
    CRITICAL_SECTION* lock = LockOf(2);
    EnterCriticalSection(lock);
    {
        const TestThread neighbours([&] {
            allocator.Free(allocator.Allocate(16).pointer, 16);
            allocator.Free(allocator.Allocate(25).pointer, 25);
        });
        EXPECT_TRUE(neighbours.WaitForEnd());
    }
    const TestThread allocating([&] { EXPECT_NE(allocator.Allocate(24).pointer, nullptr); });
    const TestThread freeing([&] { allocator.Free(block, 24); });
    EXPECT_FALSE(allocating.WaitForEnd(quietPeriod));
    EXPECT_FALSE(freeing.WaitForEnd(quietPeriod));
    LeaveCriticalSection(lock);
    EXPECT_TRUE(allocating.WaitForEnd());
    EXPECT_TRUE(freeing.WaitForEnd());
}

TEST_F(MicroAllocatorTest, LeavesItsLocksFree)
{
    void* block = allocator.Allocate(24).pointer;
    EXPECT_EQ(Look(2).lock.OwningThread, nullptr);
    allocator.Free(block, 24);
    EXPECT_EQ(Look(2).lock.OwningThread, nullptr);
    EXPECT_EQ(Look(2).lock.RecursionCount, 0);
}

// Shutdown

TEST(MicroAllocatorShutdown, FreesEveryChunkThenItsHeap)
{
    RecordedHeapCalls heaps;
    MicroAllocator allocator;
    allocator.StartupHeap();
    allocator.StartupPools();
    for (uint32_t i = 0; i < 2500; ++i)
    {
        allocator.Allocate(1024); // never freed
    }
    allocator.Free(allocator.Allocate(1).pointer, 1);
    allocator.Allocate(512);

    std::vector<void*> chunks;
    for (const HeapCall& call : heaps.GetCalls("HeapAlloc"))
    {
        chunks.push_back(call.pointer);
    }
    ASSERT_EQ(chunks.size(), 5u);
    const HANDLE heap = heaps.GetCalls("HeapCreate")[0].heap;
    heaps.Clear();
    allocator.ShutdownPools();
    allocator.ShutdownHeap();

    // By class, and within a class the last chunk first.
    const std::vector<void*> expected = {chunks[3], chunks[4], chunks[2], chunks[1], chunks[0]};
    ASSERT_EQ(heaps.GetCalls().size(), 6u);
    for (size_t i = 0; i < expected.size(); ++i)
    {
        const HeapCall& call = heaps.GetCalls()[i];
        EXPECT_EQ(call.function, "HeapFree");
        EXPECT_EQ(call.heap, heap);
        EXPECT_EQ(call.flags, 0u);
        EXPECT_EQ(call.pointer, expected[i]);
    }
    EXPECT_EQ(heaps.GetCalls().back().function, "HeapDestroy");
    EXPECT_EQ(heaps.GetCalls().back().heap, heap);
}

TEST(MicroAllocatorShutdown, SkipsPoolsThatAreGone)
{
    RecordedHeapCalls heaps;
    MicroAllocator allocator;
    allocator.StartupHeap();
    allocator.StartupPools();
    allocator.Allocate(8);
    allocator.ShutdownPools();
    heaps.Clear();
    allocator.ShutdownPools();
    EXPECT_TRUE(heaps.GetCalls().empty());
    AllocatorLayout layout;
    memcpy(static_cast<void*>(&layout), &allocator, sizeof(layout));
    for (const Allocation& pool : layout.pools)
    {
        EXPECT_EQ(pool.pointer, nullptr);
    }
    allocator.ShutdownHeap();
}
} // namespace Torvane::Testing
