#include "Shared/Memory/VirtualMemoryRange.h"

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

constexpr size_t pageSize = 4096;

struct AllocateCall
{
    void* address;
    SIZE_T size;
    DWORD type;
    DWORD protection;
};

bool operator==(const AllocateCall& left, const AllocateCall& right)
{
    return left.address == right.address && left.size == right.size && left.type == right.type &&
           left.protection == right.protection;
}

class VirtualMemoryRangeTest : public testing::Test
{
protected:
    VirtualMemoryRangeTest()
    {
        range.Reserve(10 * pageSize);
        calls.clear();
    }

    ~VirtualMemoryRangeTest() override
    {
        if (range.base != nullptr)
        {
            range.Release();
        }
    }

    static size_t CountCommittedBytes(const uint8_t* address)
    {
        MEMORY_BASIC_INFORMATION information = {};
        EXPECT_NE(VirtualQuery(address, &information, sizeof(information)), 0u);
        return information.State == MEM_COMMIT ? information.RegionSize : 0;
    }

    struct RecordAllocate
    {
        VirtualMemoryRangeTest& test;

        LPVOID operator()(decltype(&VirtualAlloc) real, LPVOID address, SIZE_T size, DWORD type,
                          DWORD protection) const
        {
            test.calls.push_back({address, size, type, protection});
            return test.fails ? nullptr : real(address, size, type, protection);
        }
    };

    std::vector<AllocateCall> calls;
    bool fails = false;
    RecordedLog log;
    FakeImport<RecordAllocate> allocate{"VirtualAlloc", RecordAllocate{*this}};
    VirtualMemoryRange range = {};
};
} // namespace

TEST_F(VirtualMemoryRangeTest, ReservesWholePagesAndCommitsNone)
{
    VirtualMemoryRange other = {};
    other.Reserve(2 * pageSize + 1);
    EXPECT_EQ(calls, (std::vector<AllocateCall>{{nullptr, 3 * pageSize, MEM_RESERVE, PAGE_NOACCESS}}));
    ASSERT_NE(other.base, nullptr);
    EXPECT_EQ(other.committedEnd, other.base);
    EXPECT_EQ(other.end, other.base + 3 * pageSize);
    EXPECT_EQ(CountCommittedBytes(other.base), 0u);
    other.Release();
}

TEST_F(VirtualMemoryRangeTest, CommitsOnePageForOneByte)
{
    EXPECT_TRUE(range.Ensure(1));
    EXPECT_EQ(calls, (std::vector<AllocateCall>{{range.base, pageSize, MEM_COMMIT, PAGE_READWRITE}}));
    EXPECT_EQ(range.committedEnd, range.base + pageSize);
    EXPECT_EQ(CountCommittedBytes(range.base), pageSize);
    memset(range.base, 0xAB, pageSize);
}

TEST_F(VirtualMemoryRangeTest, AsksTheOSForNothingThatItHas)
{
    EXPECT_TRUE(range.Ensure(0));
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(range.Ensure(pageSize + 1));
    calls.clear();
    for (const size_t bytes : {size_t{0}, size_t{1}, pageSize, 2 * pageSize})
    {
        EXPECT_TRUE(range.Ensure(bytes));
    }
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(range.committedEnd, range.base + 2 * pageSize);
}

TEST_F(VirtualMemoryRangeTest, CommitsOnlyWhatIsMissingAndKeepsWhatIsThere)
{
    EXPECT_TRUE(range.Ensure(pageSize));
    memset(range.base, 0xAB, pageSize);
    calls.clear();
    EXPECT_TRUE(range.Ensure(3 * pageSize + 5));
    EXPECT_EQ(calls,
              (std::vector<AllocateCall>{{range.base + pageSize, 3 * pageSize, MEM_COMMIT, PAGE_READWRITE}}));
    EXPECT_EQ(range.base[0], 0xAB);
    EXPECT_EQ(range.base[pageSize - 1], 0xAB);
    EXPECT_EQ(range.base[4 * pageSize - 1], 0);
}

TEST_F(VirtualMemoryRangeTest, CommitsAllThatItReserved)
{
    EXPECT_TRUE(range.Ensure(10 * pageSize));
    EXPECT_EQ(range.committedEnd, range.end);
    memset(range.base, 0xAB, 10 * pageSize);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(VirtualMemoryRangeTest, RefusesMoreThanItReservedAndStaysUsable)
{
    EXPECT_FALSE(range.Ensure(10 * pageSize + 1));
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(log.GetLines(), Lines{"ERR Cannot ensure 40961 bytes of allocated physical memory"});
    EXPECT_EQ(range.committedEnd, range.base);

    EXPECT_TRUE(range.Ensure(10 * pageSize));
    log.Clear();
    EXPECT_FALSE(range.Ensure(0xFFFF0000));
    EXPECT_EQ(log.GetLines(), Lines{"ERR Cannot ensure 4294901760 bytes of allocated physical memory"});
    EXPECT_EQ(range.committedEnd, range.end);
}

TEST_F(VirtualMemoryRangeTest, StaysAsItIsWhenTheOSCommitsNothing)
{
    EXPECT_TRUE(range.Ensure(pageSize));
    fails = true;
    EXPECT_FALSE(range.Ensure(2 * pageSize + 1));
    EXPECT_EQ(log.GetLines(), (Lines{"ERR Cannot commit 8192 bytes of physical memory.",
                                     "ERR Cannot ensure 8193 bytes of allocated physical memory"}));
    EXPECT_EQ(range.committedEnd, range.base + pageSize);
    fails = false;
    EXPECT_TRUE(range.Ensure(2 * pageSize + 1));
}

TEST_F(VirtualMemoryRangeTest, ContinuesWithoutAnAddressAfterAFailedReservation)
{
    VirtualMemoryRange other = {};
    fails = true;
    other.Reserve(pageSize + 1);
    EXPECT_EQ(log.GetLines(), Lines{"ERR Cannot reserve 8192 bytes of address space"});
    EXPECT_EQ(other.base, nullptr);
    EXPECT_EQ(other.committedEnd, nullptr);

    calls.clear();
    EXPECT_FALSE(other.Ensure(1));
    EXPECT_EQ(calls, (std::vector<AllocateCall>{{nullptr, pageSize, MEM_COMMIT, PAGE_READWRITE}}));
}

TEST_F(VirtualMemoryRangeTest, HasNothingWithoutASize)
{
    VirtualMemoryRange other = {};
    other.Reserve(0);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(other.base, nullptr);
    EXPECT_EQ(other.end, nullptr);
    EXPECT_TRUE(other.Ensure(0));
    EXPECT_FALSE(other.Ensure(1));
}

TEST_F(VirtualMemoryRangeTest, GivesTheWholeReservationBack)
{
    EXPECT_TRUE(range.Ensure(3 * pageSize));
    const uint8_t* former = range.base;
    range.Release();
    MEMORY_BASIC_INFORMATION information = {};
    EXPECT_NE(VirtualQuery(former, &information, sizeof(information)), 0u);
    EXPECT_EQ(information.State, static_cast<DWORD>(MEM_FREE));
    EXPECT_EQ(range.base, nullptr);
    EXPECT_EQ(range.committedEnd, nullptr);
    EXPECT_EQ(range.end, nullptr);
}
} // namespace Torvane::Testing
