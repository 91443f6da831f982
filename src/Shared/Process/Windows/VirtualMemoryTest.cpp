#include "Shared/Process/Windows/VirtualMemory.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/LogLine.h"
#include "tests/Support/RecordedLog.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr size_t pageSize = 4096;

MEMORY_BASIC_INFORMATION Query(const void* address)
{
    MEMORY_BASIC_INFORMATION information = {};
    EXPECT_NE(VirtualQuery(address, &information, sizeof(information)), 0u);
    return information;
}

constexpr uint32_t askers = 4;

DWORD WINAPI AskForThePageSize(void*)
{
    return VirtualMemory::GetPageSize();
}

/// A process that has never asked for the page size: several threads ask at once, then one more time. Ends with what
/// was wrong, 0 for nothing.
const ChildRole firstAskers(L"first askers", [](const wchar_t*) {
    LONG asked = 0;
    FakeImport ask("GetSystemInfo", [&](decltype(&GetSystemInfo) real, LPSYSTEM_INFO information) -> void {
        InterlockedIncrement(&asked);
        // The others get the time to ask too, while the size isn't known yet.
        WaitUntil([&] { return InterlockedCompareExchange(&asked, 0, 0) == LONG{askers}; }, quietPeriod);
        real(information);
    });
    HANDLE threads[askers];
    for (HANDLE& thread : threads)
    {
        thread = CreateThread(nullptr, 0, AskForThePageSize, nullptr, 0, nullptr);
    }
    for (const HANDLE thread : threads)
    {
        DWORD size = 0;
        if (WaitForSingleObject(thread, testTimeout) != WAIT_OBJECT_0 || !GetExitCodeThread(thread, &size) ||
            size != pageSize)
        {
            ExitProcess(1);
        }
    }
    if (asked == 0)
    {
        ExitProcess(2);
    }
    asked = 0;
    if (VirtualMemory::GetPageSize() != pageSize)
    {
        ExitProcess(3);
    }
    if (asked != 0)
    {
        ExitProcess(4);
    }
});

class VirtualMemoryTest : public testing::Test
{
protected:
    RecordedLog log;
};

/// Lets every allocation of pages fail, and keeps what it was asked for.
struct RefusedPages
{
    struct Call
    {
        void* address;
        SIZE_T size;
        DWORD type;
        DWORD protection;
    };

    struct Refuse
    {
        std::vector<Call>& calls;

        LPVOID operator()(decltype(&VirtualAlloc), LPVOID address, SIZE_T size, DWORD type,
                          DWORD protection) const
        {
            calls.push_back({address, size, type, protection});
            return nullptr;
        }
    };

    std::vector<Call> calls;
    FakeImport<Refuse> refuse{"VirtualAlloc", Refuse{calls}};
};

void ExpectOneCall(const RefusedPages& pages, void* address, size_t size, DWORD type, DWORD protection)
{
    ASSERT_EQ(pages.calls.size(), 1u);
    EXPECT_EQ(pages.calls[0].address, address);
    EXPECT_EQ(pages.calls[0].size, size);
    EXPECT_EQ(pages.calls[0].type, type);
    EXPECT_EQ(pages.calls[0].protection, protection);
}
} // namespace

TEST_F(VirtualMemoryTest, ThePageSizeIsTheOSsAndAskedForAtMostOnce)
{
    uint32_t calls = 0;
    FakeImport ask("GetSystemInfo", [&](decltype(&GetSystemInfo) real, LPSYSTEM_INFO information) -> void {
        ++calls;
        real(information);
    });
    SYSTEM_INFO information = {};
    GetSystemInfo(&information);
    calls = 0;
    for (uint32_t i = 0; i < 3; ++i)
    {
        EXPECT_EQ(VirtualMemory::GetPageSize(), information.dwPageSize);
    }
    EXPECT_LE(calls, 1u);
    EXPECT_EQ(information.dwPageSize, pageSize);
}

TEST_F(VirtualMemoryTest, ThePageSizeIsTheSameForThreadsThatAskFirstAndAtOnceAndIsKept)
{
    const PROCESS_INFORMATION child = firstAskers.Start(L"-");
    ASSERT_NE(child.hProcess, nullptr);
    EXPECT_EQ(WaitForChild(child), 0u);
}

TEST_F(VirtualMemoryTest, SizesAreRoundedUpToWholePages)
{
    EXPECT_EQ(VirtualMemory::RoundUpToPages(0), 0u);
    EXPECT_EQ(VirtualMemory::RoundUpToPages(1), pageSize);
    EXPECT_EQ(VirtualMemory::RoundUpToPages(pageSize - 1), pageSize);
    EXPECT_EQ(VirtualMemory::RoundUpToPages(pageSize), pageSize);
    EXPECT_EQ(VirtualMemory::RoundUpToPages(pageSize + 1), 2 * pageSize);
    EXPECT_EQ(VirtualMemory::RoundUpToPages(0x40000000), 0x40000000u);
}

TEST_F(VirtualMemoryTest, ReservedPagesAreWholeAndNotCommitted)
{
    void* address = VirtualMemory::Reserve(2 * pageSize + 1);
    ASSERT_NE(address, nullptr);
    const MEMORY_BASIC_INFORMATION information = Query(address);
    EXPECT_EQ(information.State, static_cast<DWORD>(MEM_RESERVE));
    EXPECT_EQ(information.AllocationProtect, static_cast<DWORD>(PAGE_NOACCESS));
    EXPECT_EQ(information.RegionSize, 3 * pageSize);
    VirtualMemory::Release(address);
    EXPECT_EQ(Query(address).State, static_cast<DWORD>(MEM_FREE));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(VirtualMemoryTest, NoBytesAreReservedWithoutACallOfTheOS)
{
    RefusedPages pages;
    EXPECT_EQ(VirtualMemory::Reserve(0), nullptr);
    EXPECT_TRUE(pages.calls.empty());
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(VirtualMemoryTest, AFailedReservationReportsTheRoundedSize)
{
    RefusedPages pages;
    EXPECT_EQ(VirtualMemory::Reserve(pageSize + 1), nullptr);
    ExpectOneCall(pages, nullptr, 8192, 0x2000, 1);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Cannot reserve 8192 bytes of address space"}));
}

TEST_F(VirtualMemoryTest, TheAddressSpaceHasNoRoomForNearlyAllOfIt)
{
    EXPECT_EQ(VirtualMemory::Reserve(0xFFFF0000), nullptr);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Cannot reserve 4294901760 bytes of address space"}));
}

TEST_F(VirtualMemoryTest, PagesAreReservedAtAnAddressThatIsFree)
{
    void* address = VirtualMemory::Reserve(16 * pageSize);
    ASSERT_NE(address, nullptr);
    VirtualMemory::Release(address);
    ASSERT_TRUE(VirtualMemory::ReserveAt(address, 3 * pageSize));
    const MEMORY_BASIC_INFORMATION information = Query(address);
    EXPECT_EQ(information.AllocationBase, address);
    EXPECT_EQ(information.State, static_cast<DWORD>(MEM_RESERVE));
    EXPECT_EQ(information.AllocationProtect, static_cast<DWORD>(PAGE_NOACCESS));
    EXPECT_EQ(information.RegionSize, 3 * pageSize);
    VirtualMemory::Release(address);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(VirtualMemoryTest, AnAddressThatIsTakenCannotBeReserved)
{
    void* address = VirtualMemory::Reserve(pageSize);
    ASSERT_NE(address, nullptr);
    EXPECT_FALSE(VirtualMemory::ReserveAt(address, 12345));
    EXPECT_EQ(log.GetLines(),
              Lines({LogLine("ERR Cannot reserve 12345 bytes of address space at address 0x%p", address)}));
    VirtualMemory::Release(address);
}

TEST_F(VirtualMemoryTest, AReservationAtAnAddressAsksForTheSizeAsItIs)
{
    RefusedPages pages;
    void* address = reinterpret_cast<void*>(0x12340000);
    EXPECT_FALSE(VirtualMemory::ReserveAt(address, 5000));
    ExpectOneCall(pages, address, 5000, 0x2000, 1);
    EXPECT_EQ(log.GetLines(),
              Lines({"ERR Cannot reserve 5000 bytes of address space at address 0x12340000"}));
}

TEST_F(VirtualMemoryTest, CommittedPagesCanBeReadAndWritten)
{
    uint8_t* address = static_cast<uint8_t*>(VirtualMemory::Reserve(4 * pageSize));
    ASSERT_NE(address, nullptr);
    ASSERT_TRUE(VirtualMemory::Commit(address + pageSize, 2 * pageSize));
    const MEMORY_BASIC_INFORMATION information = Query(address + pageSize);
    EXPECT_EQ(information.State, static_cast<DWORD>(MEM_COMMIT));
    EXPECT_EQ(information.Protect, static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(information.RegionSize, 2 * pageSize);
    EXPECT_EQ(address[pageSize], 0);
    address[3 * pageSize - 1] = 1;
    EXPECT_EQ(Query(address).State, static_cast<DWORD>(MEM_RESERVE));
    VirtualMemory::Release(address);
    EXPECT_EQ(Query(address + pageSize).State, static_cast<DWORD>(MEM_FREE));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(VirtualMemoryTest, PagesThatAreNotReservedCannotBeCommitted)
{
    void* address = VirtualMemory::Reserve(pageSize);
    VirtualMemory::Release(address);
    EXPECT_FALSE(VirtualMemory::Commit(address, pageSize));
    EXPECT_EQ(log.GetLines(), Lines({"ERR Cannot commit 4096 bytes of physical memory."}));
}

TEST_F(VirtualMemoryTest, AFailedCommitReportsTheSizeAsItIs)
{
    RefusedPages pages;
    void* address = reinterpret_cast<void*>(0x12340000);
    EXPECT_FALSE(VirtualMemory::Commit(address, 5000));
    ExpectOneCall(pages, address, 5000, 0x1000, 4);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Cannot commit 5000 bytes of physical memory."}));
}

TEST_F(VirtualMemoryTest, TheResultOfAReleaseIsNotLookedAt)
{
    uint32_t calls = 0;
    FakeImport release("VirtualFree",
                       [&](decltype(&VirtualFree), LPVOID address, SIZE_T size, DWORD type) -> BOOL {
                           ++calls;
                           EXPECT_EQ(address, reinterpret_cast<void*>(0x12340000));
                           EXPECT_EQ(size, 0u);
                           EXPECT_EQ(type, 0x8000u);
                           return FALSE;
                       });
    VirtualMemory::Release(reinterpret_cast<void*>(0x12340000));
    EXPECT_EQ(calls, 1u);
    EXPECT_EQ(log.GetLines(), Lines());
}
} // namespace Torvane::Testing
