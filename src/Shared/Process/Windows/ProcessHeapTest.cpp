#include "Shared/Process/Windows/ProcessHeap.h"

#include "Shared/Foundation/FixedString.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/HeapLock.h"
#include "tests/Support/OperatingSystem.h"
#include "tests/Support/ProcessMemoryFixture.h"
#include "tests/Support/TestThread.h"

#include <stdint.h>
#include <string.h>

#include <memory>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

constexpr LONG lockedOnce = -2;
constexpr char notFoundLine[] = "ERR Failed to find process heap critical section";

std::string FoundLine(const void* lock)
{
    FixedString text = {};
    text.Format("DBG Found process heap critical section at 0x%p", lock);
    return text.text;
}

/// What a read from no address logs, whatever status the OS has for it.
std::string UnreadableLine()
{
    uint32_t word = 0;
    FixedString text = {};
    text.Format("ERR Call to function NtReadVirtualMemory failed. Error: 0x%X",
                GetWindowsInternalAPI().NtReadVirtualMemory(GetCurrentProcess(), nullptr, &word, sizeof(word),
                                                            nullptr));
    return text.text;
}

/// A critical section that this thread has entered, counted as the OS counts: -2 for a section that is taken, 4 less
/// for each thread that waits. Where it counts otherwise, its count is saved meanwhile.
class HeldSection
{
public:
    explicit HeldSection(uint32_t times = 1)
        : recursion(times)
    {
        InitializeCriticalSection(&section);
        for (uint32_t i = 0; i < recursion; ++i)
        {
            EnterCriticalSection(&section);
        }
        TakeCount(0);
    }

    ~HeldSection()
    {
        section.LockCount = ownCount;
        for (uint32_t i = 0; i < recursion; ++i)
        {
            LeaveCriticalSection(&section);
        }
        waiter.reset();
        DeleteCriticalSection(&section);
    }

    HeldSection(const HeldSection&) = delete;
    HeldSection& operator=(const HeldSection&) = delete;

    /// Has another thread wait for it until the end.
    void AddWaiter()
    {
        section.LockCount = ownCount;
        waiter = std::make_unique<TestThread>([this] {
            EnterCriticalSection(&section);
            LeaveCriticalSection(&section);
        });
        EXPECT_TRUE(
            WaitUntil([this] { return *static_cast<volatile LONG*>(&section.LockCount) != ownCount; }));
        TakeCount(1);
    }

    RTL_CRITICAL_SECTION section = {};

private:
    void TakeCount(LONG waiters)
    {
        ownCount = section.LockCount;
        section.LockCount = lockedOnce - 4 * waiters;
    }

    uint32_t recursion;
    LONG ownCount = 0;
    std::unique_ptr<TestThread> waiter;
};

/// A header as long as the search reads it. What isn't set has no meaning, and can't be read as a section.
struct Header
{
    uint32_t words[0xD0 / 4];

    Header()
    {
        memset(words, 0xFF, sizeof(words));
    }

    void Set(uint32_t offset, const void* pointer)
    {
        words[offset / 4] = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
    }
};

/// A heap that the test lays out, in place of the process's own. Its lock is a critical section of which the header has
/// the address. Keeps the calls of the search, in their order.
class FakeHeap
{
public:
    FakeHeap()
    {
        InitializeCriticalSection(&section);
        header.Set(0xC8, &section);
        current = this;
        TestInternalAPI::Get().NtReadVirtualMemory.pointer = &Read;
    }

    ~FakeHeap()
    {
        DeleteCriticalSection(&section);
    }

    FakeHeap(const FakeHeap&) = delete;
    FakeHeap& operator=(const FakeHeap&) = delete;

    Lines calls;
    Header header;
    RTL_CRITICAL_SECTION section = {};

private:
    static NTSTATUS NTAPI Read(HANDLE process, const void* address, void* buffer, SIZE_T size, SIZE_T* read)
    {
        current->calls.push_back(address == &current->header    ? "read the header"
                                 : address == &current->section ? "read the section"
                                                                : "read something else");
        return FakeQuery::real.NtReadVirtualMemory(process, address, buffer, size, read);
    }

    struct Get
    {
        FakeHeap& heap;

        HANDLE operator()(decltype(&GetProcessHeap)) const
        {
            return &heap.header;
        }
    };

    struct Lock
    {
        FakeHeap& heap;

        BOOL operator()(decltype(&HeapLock), HANDLE given) const
        {
            EXPECT_EQ(given, &heap.header);
            heap.calls.push_back("lock");
            EnterCriticalSection(&heap.section);
            heap.ownCount = heap.section.LockCount;
            heap.section.LockCount = lockedOnce;
            return TRUE;
        }
    };

    struct Unlock
    {
        FakeHeap& heap;

        BOOL operator()(decltype(&HeapUnlock), HANDLE given) const
        {
            EXPECT_EQ(given, &heap.header);
            heap.calls.push_back("unlock");
            heap.section.LockCount = heap.ownCount;
            LeaveCriticalSection(&heap.section);
            return TRUE;
        }
    };

    static inline FakeHeap* current = nullptr;
    LONG ownCount = 0;
    FakeImport<Get> get{"GetProcessHeap", Get{*this}};
    FakeImport<Lock> lock{"HeapLock", Lock{*this}};
    FakeImport<Unlock> unlock{"HeapUnlock", Unlock{*this}};
};

/// A header that changes between the read that takes a copy of it and the one in place.
struct StaleHeader
{
    static inline const void* header = nullptr;
    static inline uint32_t offset = 0;
    static inline const void* word = nullptr;

    /// The copy has another word at the offset than the header has now.
    static NTSTATUS NTAPI Read(HANDLE process, const void* address, void* buffer, SIZE_T size, SIZE_T* read)
    {
        const NTSTATUS status = FakeQuery::real.NtReadVirtualMemory(process, address, buffer, size, read);
        if (address == header && size >= offset + sizeof(word))
        {
            memcpy(static_cast<uint8_t*>(buffer) + offset, &word, sizeof(word));
        }
        return status;
    }

    static void Install(const void* staleHeader, uint32_t staleOffset, const void* shown)
    {
        header = staleHeader;
        offset = staleOffset;
        word = shown;
        TestInternalAPI::Get().NtReadVirtualMemory.pointer = &Read;
    }
};

using ProcessHeapTest = ProcessMemoryFixture;
} // namespace

TEST_F(ProcessHeapTest, FindsTheLockAtTheFirstOffsetWithoutALookAtTheSecond)
{
    const HeldSection held;
    Header header;
    header.Set(0xC8, &held.section);
    EXPECT_EQ(FindHeapLock(&header), &held.section);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(&held.section)});
}

TEST_F(ProcessHeapTest, FindsTheLockAtTheSecondOffset)
{
    const HeldSection held;
    Header header;
    header.Set(0xCC, &held.section);
    EXPECT_EQ(FindHeapLock(&header), &held.section);
    EXPECT_EQ(log.GetLines(), (Lines{UnreadableLine(), FoundLine(&held.section)}));
}

TEST_F(ProcessHeapTest, TakesTheFirstOffsetIfBothHoldALock)
{
    const HeldSection first;
    const HeldSection second;
    Header header;
    header.Set(0xC8, &first.section);
    header.Set(0xCC, &second.section);
    EXPECT_EQ(FindHeapLock(&header), &first.section);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(&first.section)});
}

TEST_F(ProcessHeapTest, ReadsNoFurtherThanTheWordThatItTries)
{
    const TestPages pages(2, PAGE_NOACCESS);
    pages.Protect(0, PAGE_READWRITE);
    const HeldSection held;
    const void* lock = &held.section;
    memcpy(pages.At(1, -4), &lock, sizeof(lock));
    EXPECT_EQ(FindHeapLock(pages.At(1, -0xCC)), lock);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(lock)});

    log.Clear();
    EXPECT_EQ(FindHeapLock(pages.At(1, -0xC8)), nullptr);
    EXPECT_EQ(log.GetLines().back(), notFoundLine);
    EXPECT_EQ(log.GetLines().size(), 3u);
}

TEST_F(ProcessHeapTest, ContinuesAfterANullWordAtTheFirstOffset)
{
    const HeldSection held;
    Header header;
    header.Set(0xC8, nullptr);
    header.Set(0xCC, &held.section);
    EXPECT_EQ(FindHeapLock(&header), &held.section);
    EXPECT_EQ(log.GetLines(), (Lines{UnreadableLine(), FoundLine(&held.section)}));
}

TEST_F(ProcessHeapTest, FindsNothingInAHeaderOfNullWords)
{
    Header header;
    header.Set(0xC8, nullptr);
    header.Set(0xCC, nullptr);
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    EXPECT_EQ(log.GetLines(), (Lines{UnreadableLine(), UnreadableLine(), notFoundLine}));
}

TEST_F(ProcessHeapTest, SkipsReadableMemoryThatIsNoLockSilently)
{
    const HeldSection held;
    const uint32_t garbage[6] = {1, 2, 3, 4, 5, 6};
    Header header;
    header.Set(0xC8, garbage);
    header.Set(0xCC, &held.section);
    EXPECT_EQ(FindHeapLock(&header), &held.section);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(&held.section)});

    log.Clear();
    header.Set(0xCC, garbage);
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    EXPECT_EQ(log.GetLines(), Lines{notFoundLine});
}

TEST_F(ProcessHeapTest, WantsTheOwnerAndTheRecursionAndTheCountToBeRight)
{
    const HeldSection held;
    Header header;
    RTL_CRITICAL_SECTION copy = held.section;
    header.Set(0xC8, &copy);
    header.Set(0xCC, &copy);
    EXPECT_EQ(FindHeapLock(&header), &copy);

    log.Clear();
    copy.OwningThread = reinterpret_cast<HANDLE>(uintptr_t{GetCurrentThreadId() + 4});
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    copy = held.section;
    copy.RecursionCount = 0;
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    copy = held.section;
    copy.LockCount = -1;
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    EXPECT_EQ(log.GetLines(), (Lines{notFoundLine, notFoundLine, notFoundLine}));
}

TEST_F(ProcessHeapTest, RejectsALockThatIsHeldTwice)
{
    const HeldSection held(2);
    Header header;
    header.Set(0xC8, &held.section);
    header.Set(0xCC, &held.section);
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    EXPECT_EQ(log.GetLines(), Lines{notFoundLine});
}

TEST_F(ProcessHeapTest, RejectsALockThatAnotherThreadWaitsFor)
{
    HeldSection held;
    Header header;
    header.Set(0xC8, &held.section);
    header.Set(0xCC, &held.section);
    held.AddWaiter();
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    EXPECT_EQ(log.GetLines(), Lines{notFoundLine});
}

TEST_F(ProcessHeapTest, SearchesWithTheHeapLocked)
{
    FakeHeap heap;
    EXPECT_EQ(GetProcessHeapLock(), &heap.section);
    EXPECT_EQ(heap.calls, (Lines{"lock", "read the header", "read the section", "unlock"}));
    EXPECT_EQ(heap.section.RecursionCount, 0);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(&heap.section)});
}

TEST_F(ProcessHeapTest, UnlocksTheHeapAlsoIfNothingIsFound)
{
    FakeHeap heap;
    const uint32_t garbage[6] = {1, 2, 3, 4, 5, 6};
    heap.header.Set(0xC8, garbage);
    heap.header.Set(0xCC, garbage);
    EXPECT_EQ(GetProcessHeapLock(), nullptr);
    EXPECT_EQ(heap.calls, (Lines{"lock", "read the header", "read something else", "read the header",
                                 "read something else", "unlock"}));
    EXPECT_EQ(heap.section.RecursionCount, 0);
    EXPECT_EQ(log.GetLines(), Lines{notFoundLine});
}

TEST_F(ProcessHeapTest, TakesNoLockWhoseWordHasBecomeNull)
{
    const HeldSection first;
    const HeldSection second;
    Header header;
    header.Set(0xC8, nullptr);
    header.Set(0xCC, &second.section);
    StaleHeader::Install(&header, 0xC8, &first.section);
    EXPECT_EQ(FindHeapLock(&header), &second.section);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(&second.section)});

    log.Clear();
    const uint32_t garbage[6] = {1, 2, 3, 4, 5, 6};
    header.Set(0xC8, garbage);
    header.Set(0xCC, nullptr);
    StaleHeader::Install(&header, 0xCC, &second.section);
    EXPECT_EQ(FindHeapLock(&header), nullptr);
    EXPECT_EQ(log.GetLines(), Lines{notFoundLine});
}

TEST_F(ProcessHeapTest, TakesTheWordThatTheHeaderHasNow)
{
    const HeldSection before;
    const HeldSection now;
    Header header;
    header.Set(0xC8, &now.section);
    StaleHeader::Install(&header, 0xC8, &before.section);
    EXPECT_EQ(FindHeapLock(&header), &now.section);
    EXPECT_EQ(log.GetLines(), Lines{FoundLine(&now.section)});
}

TEST_F(ProcessHeapTest, AnswersForTheRealHeapAndLeavesItFree)
{
    const HANDLE heap = GetProcessHeap();
    void* expected = LockOfProcessHeap();
    EXPECT_EQ(expected != nullptr, HeapHeaderHasLock());
    EXPECT_EQ(GetProcessHeapLock(), expected);
    ASSERT_FALSE(log.GetLines().empty());
    EXPECT_EQ(log.GetLines().back(), expected != nullptr ? FoundLine(expected) : notFoundLine);

    const TestThread other([heap] {
        EXPECT_TRUE(HeapLock(heap));
        EXPECT_TRUE(HeapUnlock(heap));
    });
    const bool isFree = other.WaitForEnd();
    EXPECT_TRUE(isFree);
    if (!isFree)
    {
        HeapUnlock(heap); // so that the thread ends
    }
}

TEST_F(ProcessHeapTest, FindsNoLockThatTheThreadHolds)
{
    const HANDLE heap = GetProcessHeap();
    ASSERT_TRUE(HeapLock(heap));
    EXPECT_EQ(GetProcessHeapLock(), nullptr);
    EXPECT_TRUE(HeapUnlock(heap));
    EXPECT_EQ(log.GetLines().back(), notFoundLine);
}
} // namespace Torvane::Testing
