#include "Shared/Container/DynamicRangeArray.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/RecordedLog.h"

#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr uint32_t pageSize = 4096;

/// Not all systems have 1 GiB of address space in one piece for a 32-bit program.
constexpr uint32_t maximum = 0x1000000;

class DynamicRangeArrayTest : public testing::Test
{
protected:
    DynamicRangeArrayTest()
    {
        array.Create(maximum);
    }

    ~DynamicRangeArrayTest() override
    {
        array.Destroy();
    }

    void AppendByte(uint8_t byte, uint32_t times)
    {
        const std::vector<uint8_t> bytes(times, byte);
        array.Append(bytes.data(), times);
    }

    RecordedLog log;
    DynamicRangeArray array = {};
};
} // namespace

TEST_F(DynamicRangeArrayTest, ReservesItsMaximumAndCommitsNone)
{
    EXPECT_EQ(array.maximumCapacity, maximum);
    EXPECT_EQ(array.capacity, 0u);
    EXPECT_EQ(array.count, 0u);
    ASSERT_NE(array.range.base, nullptr);
    EXPECT_EQ(array.range.end, array.range.base + maximum);
    EXPECT_EQ(array.range.committedEnd, array.range.base);
}

TEST_F(DynamicRangeArrayTest, AsksForAGibibyteAtOnce)
{
    const FakeImport allocate("VirtualAlloc", [](decltype(&VirtualAlloc) real, LPVOID address, SIZE_T size,
                                                 DWORD type, DWORD protection) {
        EXPECT_EQ(address, nullptr);
        EXPECT_EQ(size, 0x40000000u);
        EXPECT_EQ(type, static_cast<DWORD>(MEM_RESERVE));
        return real(nullptr, pageSize, type, protection);
    });
    DynamicRangeArray large = {};
    large.Create(0x40000000);
    EXPECT_EQ(large.maximumCapacity, 0x40000000u);
    EXPECT_EQ(large.range.end, large.range.base + 0x40000000);
    large.Destroy();
}

TEST_F(DynamicRangeArrayTest, GrowsByWholePages)
{
    AppendByte(1, 1);
    EXPECT_EQ(array.capacity, pageSize);
    EXPECT_EQ(array.count, 1u);
    AppendByte(2, pageSize - 1);
    EXPECT_EQ(array.capacity, pageSize);
    AppendByte(3, 1);
    EXPECT_EQ(array.capacity, 2 * pageSize);
    AppendByte(4, 3 * pageSize);
    EXPECT_EQ(array.capacity, 5 * pageSize);
    EXPECT_EQ(array.count, 4 * pageSize + 1);
    EXPECT_EQ(array.range.committedEnd, array.range.base + 5 * pageSize);
}

TEST_F(DynamicRangeArrayTest, KeepsItsBytesInOrderAndInTheirPlace)
{
    const uint8_t* base = array.range.base;
    for (uint32_t i = 0; i < 300; ++i)
    {
        AppendByte(static_cast<uint8_t>(i), i);
    }
    EXPECT_EQ(array.range.base, base);
    const uint8_t* byte = base;
    for (uint32_t i = 0; i < 300; ++i)
    {
        for (uint32_t j = 0; j < i; ++j)
        {
            ASSERT_EQ(*byte++, static_cast<uint8_t>(i));
        }
    }
    EXPECT_EQ(byte, base + array.count);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(DynamicRangeArrayTest, TakesNoBytesWithoutGrowing)
{
    array.Append("", 0);
    EXPECT_EQ(array.capacity, 0u);
    EXPECT_EQ(array.count, 0u);
}

TEST_F(DynamicRangeArrayTest, FillsItsMaximumExactly)
{
    DynamicRangeArray small = {};
    small.Create(2 * pageSize);
    const std::vector<uint8_t> bytes(2 * pageSize, 7);
    small.Append(bytes.data(), 2 * pageSize);
    EXPECT_EQ(small.capacity, 2 * pageSize);
    EXPECT_EQ(small.count, 2 * pageSize);
    EXPECT_EQ(small.range.base[2 * pageSize - 1], 7);
    EXPECT_EQ(log.GetLines(), Lines());
    small.Destroy();
}

TEST_F(DynamicRangeArrayTest, CutsTheCapacityButNotTheCopyAtItsMaximum)
{
    // The range has room for the copy that the maximum has not.
    array.maximumCapacity = pageSize;
    array.Resize(2 * pageSize);
    array.capacity = pageSize;
    AppendByte(7, pageSize);
    AppendByte(8, 10);
    EXPECT_EQ(array.capacity, pageSize);
    EXPECT_EQ(array.count, pageSize + 10);
    EXPECT_EQ(array.range.base[pageSize + 9], 8);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(DynamicRangeArrayTest, PanicsWithoutMemoryAndTakesTheCapacityAllTheSame)
{
    const FakeImport allocate(
        "VirtualAlloc",
        [](decltype(&VirtualAlloc), LPVOID, SIZE_T, DWORD, DWORD) -> LPVOID { return nullptr; });
    array.Resize(3 * pageSize);
    EXPECT_EQ(log.GetLines(),
              (Lines{"ERR Cannot commit 12288 bytes of physical memory.",
                     "ERR Cannot ensure 12288 bytes of allocated physical memory", "PNC Out of memory"}));
    EXPECT_EQ(array.capacity, 3 * pageSize);
    EXPECT_EQ(array.count, 0u);
    EXPECT_EQ(array.range.committedEnd, array.range.base);
}

TEST_F(DynamicRangeArrayTest, IsEmptyAfterItsDestructionAndCanBeMadeAgain)
{
    AppendByte(1, 100);
    array.Destroy();
    EXPECT_EQ(array.range.base, nullptr);
    EXPECT_EQ(array.maximumCapacity, 0u);
    EXPECT_EQ(array.capacity, 0u);
    EXPECT_EQ(array.count, 0u);
    array.Create(pageSize);
    AppendByte(2, 5);
    EXPECT_EQ(array.range.base[4], 2);
}
} // namespace Torvane::Testing
