#include "Shared/Memory/Allocator/PoolChunk.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <gtest/gtest.h>

#include <vector>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t megabyte = 0x100000;
constexpr uint32_t alignment = 16;
constexpr uint8_t untouched = 0xA5;

/// Memory of a chunk that begins `offset` bytes after an address that is aligned to 16. What follows it has to stay
/// as it is.
class TestChunk
{
public:
    explicit TestChunk(uint32_t size, uint32_t offset = 0)
        : block(static_cast<uint8_t*>(malloc(size + offset + 2 * alignment)))
    {
        const uintptr_t address = reinterpret_cast<uintptr_t>(block);
        start = block + (0 - address) % alignment + offset;
        end = start + size;
        memset(start, untouched, size + alignment);
    }

    ~TestChunk()
    {
        for (uint32_t i = 0; i < alignment; ++i)
        {
            EXPECT_EQ(end[i], untouched);
        }
        free(block);
    }

    TestChunk(const TestChunk&) = delete;
    TestChunk& operator=(const TestChunk&) = delete;

    uint8_t* start;

private:
    uint8_t* block;
    uint8_t* end;
};

/// Distances of the list's blocks from the chunk's start.
std::vector<ptrdiff_t> Follow(const FreeBlock* block, const uint8_t* start)
{
    std::vector<ptrdiff_t> distances;
    for (; block != nullptr; block = block->next)
    {
        distances.push_back(reinterpret_cast<const uint8_t*>(block) - start);
    }
    return distances;
}

uint32_t StrideOf(uint32_t blockSize)
{
    return (blockSize + 15) & ~15u;
}
} // namespace

TEST(PoolChunk, CutsAMegabyteIntoTheBlocksOfEveryClass)
{
    const TestChunk chunk(megabyte);
    for (uint32_t blockSize = 8; blockSize <= 1024; blockSize += 8)
    {
        SCOPED_TRACE(blockSize);
        const ptrdiff_t stride = static_cast<ptrdiff_t>(StrideOf(blockSize));
        const auto blocks = Follow(CarveChunk(chunk.start, megabyte, blockSize, alignment), chunk.start);
        ASSERT_EQ(blocks.size(), (megabyte - StrideOf(blockSize)) / StrideOf(blockSize));
        for (size_t i = 0; i < blocks.size(); ++i)
        {
            ASSERT_EQ(blocks[i], static_cast<ptrdiff_t>(i + 1) * stride);
        }
    }
}

TEST(PoolChunk, HoldsTheDocumentedNumbersOfBlocks)
{
    const TestChunk chunk(megabyte);
    const auto count = [&](uint32_t blockSize) {
        return Follow(CarveChunk(chunk.start, megabyte, blockSize, alignment), chunk.start).size();
    };
    EXPECT_EQ(count(8), 65535u);
    EXPECT_EQ(count(16), 65535u);
    EXPECT_EQ(count(24), 32767u);
    EXPECT_EQ(count(1016), 1023u);
    EXPECT_EQ(count(1024), 1023u);
}

TEST(PoolChunk, LeavesTheFirstStrideAlone)
{
    const TestChunk chunk(megabyte);
    CarveChunk(chunk.start, megabyte, 1024, alignment);
    for (uint32_t i = 0; i < 1024; ++i)
    {
        ASSERT_EQ(chunk.start[i], untouched);
    }
    EXPECT_EQ(Follow(reinterpret_cast<FreeBlock*>(chunk.start + 1024), chunk.start).size(), 1023u);
}

TEST(PoolChunk, WritesNothingButTheLinks)
{
    const TestChunk chunk(4096);
    CarveChunk(chunk.start, 4096, 64, alignment);
    for (uint32_t i = 0; i < 4096; ++i)
    {
        if (i < 64 || i % 64 >= sizeof(FreeBlock))
        {
            ASSERT_EQ(chunk.start[i], untouched) << i;
        }
    }
}

TEST(PoolChunk, AlignsTheBlocksOfAChunkThatIsNot)
{
    for (const uint32_t offset : {4u, 8u, 12u})
    {
        SCOPED_TRACE(offset);
        const TestChunk chunk(megabyte, offset);
        const auto blocks = Follow(CarveChunk(chunk.start, megabyte, 1024, alignment), chunk.start);
        ASSERT_EQ(blocks.size(), 1022u);
        EXPECT_EQ(blocks.front(), static_cast<ptrdiff_t>(1024 + 16 - offset));
        EXPECT_EQ(
            (reinterpret_cast<uintptr_t>(chunk.start) + static_cast<size_t>(blocks.front())) % alignment, 0u);
        EXPECT_LE(blocks.back() + 1024, static_cast<ptrdiff_t>(megabyte));
    }
}

TEST(PoolChunk, RoundsEveryBlockSizeUpToTheAlignment)
{
    const TestChunk chunk(4096);
    for (uint32_t blockSize = 16; blockSize <= 64; ++blockSize)
    {
        SCOPED_TRACE(blockSize);
        const auto blocks = Follow(CarveChunk(chunk.start, 4096, blockSize, alignment), chunk.start);
        ASSERT_EQ(blocks.size(), 4096 / StrideOf(blockSize) - 1);
        EXPECT_EQ(blocks[0], static_cast<ptrdiff_t>(StrideOf(blockSize)));
        EXPECT_EQ(blocks[1], static_cast<ptrdiff_t>(2 * StrideOf(blockSize)));
    }
}

TEST(PoolChunk, RaisesTheSmallestBlocks)
{
    const TestChunk chunk(256);
    for (const uint32_t blockSize : {0u, 1u, 3u, 4u, 16u})
    {
        EXPECT_EQ(Follow(CarveChunk(chunk.start, 256, blockSize, alignment), chunk.start).size(), 15u);
    }
#ifdef _WIN32
    for (const uint32_t blockSize : {0u, 1u, 3u, 4u})
    {
        const auto blocks = Follow(CarveChunk(chunk.start, 256, blockSize, 4), chunk.start);
        ASSERT_EQ(blocks.size(), 63u);
        EXPECT_EQ(blocks[0], 4);
        EXPECT_EQ(blocks[1], 8);
    }
#endif
}

TEST(PoolChunk, MakesAListOfOneBlockWhereThereIsRoomForOne)
{
    const TestChunk chunk(64);
    EXPECT_EQ(Follow(CarveChunk(chunk.start, 64, 32, alignment), chunk.start), std::vector<ptrdiff_t>{32});
    EXPECT_EQ(Follow(CarveChunk(chunk.start, 63 + 32, 32, alignment), chunk.start),
              std::vector<ptrdiff_t>{32});
}

TEST(PoolChunk, MakesAListOfOneBlockEvenWhereThereIsRoomForNone)
{
    const TestChunk memory(64); // twice the chunk's size: the block is beyond its end
    EXPECT_EQ(Follow(CarveChunk(memory.start, 32, 32, alignment), memory.start), std::vector<ptrdiff_t>{32});
    EXPECT_EQ(Follow(CarveChunk(memory.start, 63, 32, alignment), memory.start), std::vector<ptrdiff_t>{32});
}

TEST(PoolChunk, LeavesARestThatIsTooSmallForABlock)
{
    const TestChunk chunk(127);
    EXPECT_EQ(Follow(CarveChunk(chunk.start, 127, 32, alignment), chunk.start),
              (std::vector<ptrdiff_t>{32, 64}));
}
} // namespace Torvane::Testing
