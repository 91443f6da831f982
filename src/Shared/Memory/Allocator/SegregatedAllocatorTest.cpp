#include "Shared/Memory/Allocator/SegregatedAllocator.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace Torvane::Testing
{
namespace
{
struct RecordedAllocator
{
    std::vector<uint32_t> allocated;
    std::vector<std::pair<void*, uint32_t>> freed;
    char block = 0;

    Allocation Allocate(uint32_t size)
    {
        allocated.push_back(size);
        return {&block, size};
    }

    void Free(void* pointer, uint32_t size)
    {
        freed.emplace_back(pointer, size);
    }

    void Free(void* pointer)
    {
        freed.emplace_back(pointer, 0);
    }
};

using Sizes = std::vector<uint32_t>;

class SegregatedAllocatorTest : public testing::Test
{
protected:
    SegregatedAllocatorTest()
    {
        allocator.Startup(1024, &small, &large);
    }

    RecordedAllocator small;
    RecordedAllocator large;
    SegregatedAllocator<RecordedAllocator, RecordedAllocator> allocator = {};
};
} // namespace

TEST_F(SegregatedAllocatorTest, AllocatesUpToItsThresholdFromTheSmallOne)
{
    for (const uint32_t size : {0u, 1u, 8u, 1023u, 1024u})
    {
        const Allocation block = allocator.Allocate(size);
        EXPECT_EQ(block.pointer, &small.block);
        EXPECT_EQ(block.size, size);
    }
    EXPECT_EQ(small.allocated, (Sizes{0, 1, 8, 1023, 1024}));
    EXPECT_EQ(large.allocated, Sizes());
}

TEST_F(SegregatedAllocatorTest, AllocatesAboveItsThresholdFromTheLargeOne)
{
    for (const uint32_t size : {1025u, 0x100000u, 0x80000000u, 0xFFFFFFFFu})
    {
        const Allocation block = allocator.Allocate(size);
        EXPECT_EQ(block.pointer, &large.block);
        EXPECT_EQ(block.size, size);
    }
    EXPECT_EQ(large.allocated, (Sizes{1025, 0x100000, 0x80000000, 0xFFFFFFFF}));
    EXPECT_EQ(small.allocated, Sizes());
}

TEST_F(SegregatedAllocatorTest, FreesBySizeAlone)
{
    char block = 0;
    allocator.Free(&block, 0);
    allocator.Free(&block, 1024);
    EXPECT_EQ(small.freed, (std::vector<std::pair<void*, uint32_t>>{{&block, 0}, {&block, 1024}}));
    EXPECT_TRUE(large.freed.empty());

    allocator.Free(&block, 1025);
    allocator.Free(&block, 0xFFFFFFFF);
    EXPECT_EQ(small.freed.size(), 2u);
    EXPECT_EQ(large.freed, (std::vector<std::pair<void*, uint32_t>>{{&block, 0}, {&block, 0}}));
}

TEST_F(SegregatedAllocatorTest, KeepsItsThresholdInAField)
{
    allocator.Startup(100, &small, &large);
    allocator.Allocate(100);
    allocator.Allocate(101);
    EXPECT_EQ(small.allocated, Sizes{100});
    EXPECT_EQ(large.allocated, Sizes{101});
}
} // namespace Torvane::Testing
