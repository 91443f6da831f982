#include "Shared/Memory/MemorySystem.h"

#include "tests/Support/RecordedHeapCalls.h"
#include "tests/Support/TestMemorySystem.h"
#include "tests/Support/TestThread.h"

#include <string.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t sizes[] = {0, 1, 7, 8, 9, 16, 17, 100, 512, 1023, 1024, 1025, 4096, 70000};

class MemorySystemTest : public testing::Test
{
protected:
    TestMemorySystem memory;
};

/// A block that is filled to its last byte with what its size and a seed give.
struct FilledBlock
{
    Allocation block;
    uint8_t seed;

    void Fill()
    {
        memset(block.pointer, seed, block.size);
    }

    bool IsIntact() const
    {
        const uint8_t* bytes = static_cast<const uint8_t*>(block.pointer);
        for (uint32_t i = 0; i < block.size; ++i)
        {
            if (bytes[i] != seed)
            {
                return false;
            }
        }
        return true;
    }
};
} // namespace

TEST_F(MemorySystemTest, SendsBlocksAboveTheThresholdToAHeapWithTheirExactSize)
{
    RecordedHeapCalls heaps;
    Allocation block = Allocate(1025);
    ASSERT_EQ(heaps.GetCalls().size(), 1u);
    HeapCall call = heaps.GetCalls()[0];
    EXPECT_EQ(call.function, "HeapAlloc");
    EXPECT_EQ(call.flags, 0u);
    EXPECT_EQ(call.size, 1025u);
    EXPECT_EQ(call.pointer, block.pointer);
    EXPECT_EQ(block.size, 1025u);
    const HANDLE large = call.heap;

    void* pointer = block.pointer;
    Free(block);
    ASSERT_EQ(heaps.GetCalls().size(), 2u);
    call = heaps.GetCalls()[1];
    EXPECT_EQ(call.function, "HeapFree");
    EXPECT_EQ(call.heap, large);
    EXPECT_EQ(call.flags, 0u);
    EXPECT_EQ(call.pointer, pointer);
}

TEST_F(MemorySystemTest, SendsBlocksUpToTheThresholdToThePools)
{
    RecordedHeapCalls heaps;
    const HANDLE large = [&] {
        Allocation block = Allocate(1025);
        Free(block);
        return heaps.GetCalls()[0].heap;
    }();
    heaps.Clear();
    Allocation block = Allocate(1024);
    EXPECT_EQ(block.size, 1024u);
    ASSERT_EQ(heaps.GetCalls().size(), 1u);
    EXPECT_EQ(heaps.GetCalls()[0].size, 0x100000u);
    EXPECT_NE(heaps.GetCalls()[0].heap, large);

    void* pointer = block.pointer;
    Free(block);
    EXPECT_EQ(Allocate(1024).pointer, pointer);
    EXPECT_EQ(heaps.GetCalls().size(), 1u);
}

TEST_F(MemorySystemTest, EmptiesTheOwnersRecordOfAFreedBlock)
{
    for (const uint32_t size : sizes)
    {
        Allocation block = Allocate(size);
        EXPECT_EQ(block.size, size);
        EXPECT_NE(block.pointer, nullptr);
        Free(block);
        EXPECT_EQ(block.pointer, nullptr);
        EXPECT_EQ(block.size, 0u);
    }
}

TEST_F(MemorySystemTest, GivesABlockForNoBytes)
{
    void* block = Allocate(0).pointer;
    memset(block, 0xFF, 8);
    Free(block, 0);
    EXPECT_EQ(Allocate(8).pointer, block);
}

TEST_F(MemorySystemTest, AlignsBlocks)
{
    for (uint32_t size = 0; size <= 1100; ++size)
    {
        const uintptr_t alignment = size <= 1024 ? 16 : 8;
        ASSERT_EQ(reinterpret_cast<uintptr_t>(Allocate(size).pointer) % alignment, 0u) << size;
    }
}

TEST_F(MemorySystemTest, KeepsBlocksApart)
{
    std::vector<FilledBlock> blocks;
    for (uint32_t round = 0; round < 20; ++round)
    {
        for (const uint32_t size : sizes)
        {
            blocks.push_back({Allocate(size), static_cast<uint8_t>(blocks.size())});
            blocks.back().Fill();
        }
        // Every third block goes, and its place is taken in the next round.
        for (size_t i = round % 3; i < blocks.size(); i += 3)
        {
            ASSERT_TRUE(blocks[i].IsIntact());
            Free(blocks[i].block);
            blocks.erase(blocks.begin() + static_cast<ptrdiff_t>(i));
        }
    }
    for (FilledBlock& filled : blocks)
    {
        ASSERT_TRUE(filled.IsIntact());
        Free(filled.block);
    }
}

// Threads

TEST_F(MemorySystemTest, TakesBlocksBackFromOtherThreads)
{
    constexpr uint32_t threadCount = 6;
    constexpr uint32_t rounds = 20000;
    constexpr size_t tableSize = 61;
    // Through the table each block passes to whoever comes there next, and that thread frees it.
    std::atomic<FilledBlock*> table[tableSize] = {};
    std::atomic<uint32_t> damaged = 0;
    std::atomic<uint32_t> foreign = 0;
    {
        std::vector<std::unique_ptr<TestThread>> threads;
        for (uint32_t thread = 1; thread <= threadCount; ++thread)
        {
            threads.push_back(std::make_unique<TestThread>([&, thread] {
                uint32_t random = thread;
                for (uint32_t round = 0; round < rounds; ++round)
                {
                    random = random * 1664525 + 1013904223;
                    const uint32_t size = sizes[(random >> 16) % (sizeof(sizes) / sizeof(sizes[0]) - 1)];
                    auto* mine = static_cast<FilledBlock*>(Allocate(sizeof(FilledBlock)).pointer);
                    *mine = {Allocate(size), static_cast<uint8_t>(thread)};
                    mine->Fill();
                    FilledBlock* other = table[(random >> 8) % tableSize].exchange(mine);
                    if (other == nullptr)
                    {
                        continue;
                    }
                    damaged += other->IsIntact() ? 0 : 1;
                    foreign += other->seed != thread ? 1 : 0;
                    Free(other->block);
                    Free(other, sizeof(FilledBlock));
                }
            }));
        }
    }
    EXPECT_EQ(damaged, 0u);
    EXPECT_GT(foreign, 0u);
    for (std::atomic<FilledBlock*>& entry : table)
    {
        if (entry != nullptr)
        {
            EXPECT_TRUE(entry.load()->IsIntact());
        }
    }
}

TEST_F(MemorySystemTest, GivesThreadsThatGrowOnePoolAtOnceBlocksOfTheirOwn)
{
    constexpr uint32_t threadCount = 4;
    constexpr uint32_t blocksEach = 2000;
    std::vector<uint32_t*> blocks[threadCount];
    {
        std::vector<std::unique_ptr<TestThread>> threads;
        for (uint32_t thread = 0; thread < threadCount; ++thread)
        {
            blocks[thread].resize(blocksEach);
            threads.push_back(std::make_unique<TestThread>([&blocks, thread] {
                for (uint32_t i = 0; i < blocksEach; ++i)
                {
                    blocks[thread][i] = static_cast<uint32_t*>(Allocate(1024).pointer);
                    *blocks[thread][i] = thread * blocksEach + i;
                }
            }));
        }
    }
    for (uint32_t thread = 0; thread < threadCount; ++thread)
    {
        for (uint32_t i = 0; i < blocksEach; ++i)
        {
            ASSERT_EQ(*blocks[thread][i], thread * blocksEach + i);
        }
    }
}

TEST_F(MemorySystemTest, WorksWhileAnotherThreadIsInsideTheProcessHeap)
{
    const HANDLE parked = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    bool inTime = false;
    // Until it unlocks the heap, nothing here may allocate by other means.
    const TestThread owner([&] {
        HeapLock(GetProcessHeap());
        SetEvent(parked);
        inTime = WaitForSingleObject(done, testTimeout / 2) == WAIT_OBJECT_0;
        HeapUnlock(GetProcessHeap());
    });
    ASSERT_EQ(WaitForSingleObject(parked, testTimeout), WAIT_OBJECT_0);
    bool allocated = true;
    for (const uint32_t size : sizes)
    {
        Allocation blocks[4] = {};
        for (Allocation& block : blocks)
        {
            block = Allocate(size);
            memset(block.pointer, 0xEE, size);
            allocated = allocated && block.pointer != nullptr;
        }
        for (Allocation& block : blocks)
        {
            Free(block);
        }
    }
    SetEvent(done);
    EXPECT_TRUE(owner.WaitForEnd());
    EXPECT_TRUE(inTime);
    EXPECT_TRUE(allocated);
    CloseHandle(parked);
    CloseHandle(done);
}
} // namespace Torvane::Testing
