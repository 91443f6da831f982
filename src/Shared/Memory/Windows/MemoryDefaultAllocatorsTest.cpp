#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"

#include "Shared/Memory/MemorySystem.h"
#include "tests/Support/RecordedHeapCalls.h"
#include "tests/Support/RecordedLog.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

/// What is done and what is logged, in one order: calls by their function's name, objects by the order of their first
/// appearance.
class Journal
{
public:
    explicit Journal(const RecordedLog& recordedLog)
        : log(recordedLog)
    {
    }

    void Add(const char* function, const void* object)
    {
        TakeLogLines();
        auto found = std::find(objects.begin(), objects.end(), object);
        if (found == objects.end())
        {
            found = objects.insert(found, object);
        }
        lines.push_back(std::string(function) + " " + std::to_string(found - objects.begin()));
    }

    /// \return everything since the last call of this function.
    Lines Take()
    {
        TakeLogLines();
        return std::exchange(lines, {});
    }

private:
    void TakeLogLines()
    {
        const Lines& logged = log.GetLines();
        lines.insert(lines.end(), logged.begin() + static_cast<ptrdiff_t>(linesTaken), logged.end());
        linesTaken = logged.size();
    }

    const RecordedLog& log;
    size_t linesTaken = 0;
    std::vector<const void*> objects;
    Lines lines;
};

void Append(Lines& lines, std::initializer_list<std::string> more)
{
    lines.insert(lines.end(), more);
}
} // namespace

TEST(MemoryDefaultAllocators, StartAndEndInTheirOrder)
{
    const RecordedLog log;
    Journal journal(log);
    const FakeImport create("HeapCreate",
                            [&](decltype(&HeapCreate) real, DWORD options, SIZE_T initial, SIZE_T maximum) {
                                const HANDLE heap = real(options, initial, maximum);
                                journal.Add("HeapCreate", heap);
                                return heap;
                            });
    const FakeImport destroy("HeapDestroy", [&](decltype(&HeapDestroy) real, HANDLE heap) {
        journal.Add("HeapDestroy", heap);
        return real(heap);
    });
    const FakeImport allocate("HeapAlloc",
                              [&](decltype(&HeapAlloc) real, HANDLE heap, DWORD flags, SIZE_T size) {
                                  journal.Add("HeapAlloc", heap);
                                  return real(heap, flags, size);
                              });
    const FakeImport free("HeapFree", [&](decltype(&HeapFree) real, HANDLE heap, DWORD flags, LPVOID block) {
        journal.Add("HeapFree", heap);
        return real(heap, flags, block);
    });
    const FakeImport initialize(
        "InitializeCriticalSection", [&](decltype(&InitializeCriticalSection) real, LPCRITICAL_SECTION lock) {
            const char* cleared = reinterpret_cast<const char*>(lock);
            EXPECT_TRUE(std::all_of(cleared, cleared + sizeof(*lock), [](char byte) { return byte == 0; }));
            journal.Add("InitializeCriticalSection", lock);
            real(lock);
        });
    const FakeImport remove("DeleteCriticalSection",
                            [&](decltype(&DeleteCriticalSection) real, LPCRITICAL_SECTION lock) {
                                EXPECT_EQ(lock->OwningThread, nullptr);
                                journal.Add("DeleteCriticalSection", lock);
                                real(lock);
                            });

    StartupMemorySystem();
    Lines expected = {"DBG Initializing default allocators for memory system", "HeapCreate 0",
                      "DBG Initializing heap allocator", "HeapCreate 1", "DBG Initializing micro allocator"};
    for (uint32_t pool = 0; pool < 128; ++pool)
    {
        expected.push_back("InitializeCriticalSection " + std::to_string(2 + pool));
    }
    Append(expected, {"DBG Initializing segregated allocator"});
    EXPECT_EQ(journal.Take(), expected);

    Allocation large = Allocate(1025); // from the first heap
    Allocate(8);                       // a chunk of the second one
    Allocate(16);
    Free(large);
    EXPECT_EQ(journal.Take(), (Lines{"HeapAlloc 0", "HeapAlloc 1", "HeapAlloc 1", "HeapFree 0"}));

    ShutdownMemorySystem();
    expected = {"DBG Shutting down default allocators for memory system", "HeapFree 1",
                "DeleteCriticalSection 2", "HeapFree 1", "DeleteCriticalSection 3"};
    for (uint32_t pool = 2; pool < 128; ++pool)
    {
        expected.push_back("DeleteCriticalSection " + std::to_string(2 + pool));
    }
    Append(expected, {"HeapDestroy 1", "HeapDestroy 0"});
    EXPECT_EQ(journal.Take(), expected);
}

TEST(MemoryDefaultAllocators, CreateTwoHeapsThatCanGrow)
{
    const RecordedLog log;
    const RecordedHeapCalls heaps;
    StartupMemorySystem();
    const auto created = heaps.GetCalls();
    ShutdownMemorySystem();
    ASSERT_EQ(created.size(), 2u);
    for (const HeapCall& call : created)
    {
        EXPECT_EQ(call.function, "HeapCreate");
        EXPECT_EQ(call.flags, 0u);
        EXPECT_EQ(call.size, 0x8000000u);
        EXPECT_EQ(call.maximumSize, 0u);
        EXPECT_NE(call.heap, GetProcessHeap());
    }
    EXPECT_NE(created[0].heap, created[1].heap);
}

TEST(MemoryDefaultAllocators, EndOnlyOnce)
{
    const RecordedLog log;
    const RecordedHeapCalls heaps;
    StartupMemorySystem();
    ShutdownMemorySystem();
    const size_t calls = heaps.GetCalls().size();
    const size_t lines = log.GetLines().size();
    ShutdownMemorySystem();
    EXPECT_EQ(heaps.GetCalls().size(), calls);
    EXPECT_EQ(log.GetLines().size(), lines);
}

TEST(MemoryDefaultAllocators, StartAfreshAfterTheirEnd)
{
    const RecordedLog log;
    const RecordedHeapCalls heaps;
    for (uint32_t round = 1; round <= 3; ++round)
    {
        StartupMemorySystem();
        void* block = Allocate(100).pointer;
        Free(block, 100);
        EXPECT_EQ(Allocate(100).pointer, block);
        Allocate(5000); // vanishes with its heap
        ShutdownMemorySystem();
        EXPECT_EQ(heaps.GetCalls("HeapCreate").size(), 2 * round);
        EXPECT_EQ(heaps.GetCalls("HeapAlloc").size(), 2 * round); // a chunk and a large block
        EXPECT_EQ(heaps.GetCalls("HeapFree").size(), round);
        EXPECT_EQ(heaps.GetCalls("HeapDestroy").size(), 2 * round);
    }
}
} // namespace Torvane::Testing
