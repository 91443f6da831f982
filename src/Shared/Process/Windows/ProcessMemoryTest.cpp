#include "Shared/Process/Windows/ProcessMemory.h"

#include "Shared/Foundation/FixedString.h"
#include "Shared/Memory/MemorySystem.h"
#include "tests/Support/FakeImport.h"
#include "tests/Support/ProcessMemoryFixture.h"
#include "tests/Support/Wait.h"

#include <string.h>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

template<typename... Arguments>
std::string FormatLine(FormatOf<Arguments...> format, Arguments... arguments)
{
    FixedString text = {};
    text.Format(format, arguments...);
    return text.text;
}

std::string GatherLine(const void* start, size_t size)
{
    return FormatLine("DBG Determining page regions in the address range 0x%p with size 0x%016llX", start,
                      static_cast<unsigned long long>(size));
}

std::string RegionLine(const void* base, size_t size, unsigned protection, unsigned state)
{
    return FormatLine("DBG Region 0x%p, size 0x%016llX, protection 0x%X, state 0x%X", base,
                      static_cast<unsigned long long>(size), protection, state);
}

std::string ProtectFailureLine(const void* address, unsigned size, unsigned protection)
{
    return FormatLine("DBG VirtualProtect() failed: address 0x%p, size 0x%X, protection 0x%X", address, size,
                      protection);
}

std::string ConversionLine(const void* page, unsigned oldProtection, unsigned newProtection)
{
    return FormatLine("DBG Converting page into executable page: address 0x%p, old protection 0x%X, new "
                      "protection 0x%X",
                      page, oldProtection, newProtection);
}

void ExpectRange(const PageRange& range, const void* base, size_t size, uint32_t protection)
{
    EXPECT_EQ(range.base, reinterpret_cast<uintptr_t>(base));
    EXPECT_EQ(range.size, size);
    EXPECT_EQ(range.protection, protection);
    EXPECT_EQ(range.padding, 0u);
}

/// Lets reads of process memory fail or answer with a status of the test's choice, and keeps what is read.
struct ReadDouble
{
    struct Call
    {
        HANDLE process;
        const void* address;
        SIZE_T size;
        SIZE_T* read;
    };

    static inline uint32_t calls = 0;
    static inline std::vector<Call> arguments;
    static inline uint32_t firstAnswer = 0; ///< the number of the call that is answered with `status`, from 1
    static inline NTSTATUS status = 0;

    static NTSTATUS NTAPI Read(HANDLE process, const void* address, void* buffer, SIZE_T size, SIZE_T* read)
    {
        ++calls;
        arguments.push_back({process, address, size, read});
        if (calls == firstAnswer)
        {
            return status;
        }
        return FakeQuery::real.NtReadVirtualMemory(process, address, buffer, size, read);
    }

    static void Install(uint32_t answeredCall, NTSTATUS answer)
    {
        calls = 0;
        arguments.clear();
        firstAnswer = answeredCall;
        status = answer;
        TestInternalAPI::Get().NtReadVirtualMemory.pointer = &Read;
    }
};

constexpr NTSTATUS accessViolation = static_cast<NTSTATUS>(0xC0000005);

class ProcessMemory : public ProcessMemoryFixture
{
};
} // namespace

// Careful reads

TEST_F(ProcessMemory, ReadsBytesOfItsOwnProcess)
{
    const char source[] = "bytes to read";
    char destination[sizeof(source)] = {};
    EXPECT_TRUE(ReadProcessBytes(GetCurrentProcess(), source, destination, sizeof(source)));
    EXPECT_STREQ(destination, source);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, ReportsAReadOfAnAddressThatCannotBeRead)
{
    const auto* nowhere = reinterpret_cast<const void*>(uintptr_t{0x10});
    char destination[16];
    const NTSTATUS status = GetWindowsInternalAPI().NtReadVirtualMemory(
        GetCurrentProcess(), nowhere, destination, sizeof(destination), nullptr);
    EXPECT_LT(status, 0);
    EXPECT_FALSE(ReadProcessBytes(GetCurrentProcess(), nowhere, destination, sizeof(destination)));
    EXPECT_EQ(log.GetLines(),
              Lines{FormatLine("ERR Call to function NtReadVirtualMemory failed. Error: 0x%X", status)});
}

TEST_F(ProcessMemory, TakesEveryStatusThatIsNotNegativeForASuccess)
{
    for (const NTSTATUS status : {0x00000001, 0x40000000})
    {
        char byte = 0;
        ReadDouble::Install(1, status);
        EXPECT_TRUE(ReadProcessBytes(GetCurrentProcess(), &byte, &byte, 1));
    }
    EXPECT_EQ(log.GetLines(), Lines());
}

// Page ranges

TEST_F(ProcessMemory, ListsRunsOfPagesOfLikeStateInTheOrderOfTheirAddresses)
{
    const TestPages pages(6);
    pages.Protect(1, PAGE_READONLY);
    pages.Protect(2, PAGE_READONLY);
    pages.Protect(3, PAGE_EXECUTE_READ);
    pages.Protect(4, PAGE_READWRITE | PAGE_GUARD);
    const PageRangeList list = GatherPageRanges(pages.At(0), 6 * testPageSize);
    ASSERT_EQ(list.count, 5u);
    ExpectRange(list[0], pages.At(0), testPageSize, 0x04);
    ExpectRange(list[1], pages.At(1), 2 * testPageSize, 0x02);
    ExpectRange(list[2], pages.At(3), testPageSize, 0x20);
    ExpectRange(list[3], pages.At(4), testPageSize, 0x104);
    ExpectRange(list[4], pages.At(5), testPageSize, 0x04);
    EXPECT_EQ(log.GetLines(), (Lines{GatherLine(pages.At(0), 6 * testPageSize),
                                     RegionLine(pages.At(0), testPageSize, 0x04, 0x1000),
                                     RegionLine(pages.At(1), 2 * testPageSize, 0x02, 0x1000),
                                     RegionLine(pages.At(3), testPageSize, 0x20, 0x1000),
                                     RegionLine(pages.At(4), testPageSize, 0x104, 0x1000),
                                     RegionLine(pages.At(5), testPageSize, 0x04, 0x1000)}));
}

TEST_F(ProcessMemory, ListsReservedPagesWithTheProtectionOfTheQuery)
{
    const TestPages pages(4, PAGE_READWRITE, MEM_RESERVE);
    pages.Commit(1, PAGE_READWRITE);
    const PageRangeList list = GatherPageRanges(pages.At(0), 4 * testPageSize);
    ASSERT_EQ(list.count, 3u);
    ExpectRange(list[0], pages.At(0), testPageSize, 0);
    ExpectRange(list[1], pages.At(1), testPageSize, 0x04);
    ExpectRange(list[2], pages.At(2), 2 * testPageSize, 0);
    EXPECT_EQ(log.Count(RegionLine(pages.At(2), 2 * testPageSize, 0, 0x2000)), 1u);
}

TEST_F(ProcessMemory, StartsAtThePageOfAnAddressInTheMiddleOfARegion)
{
    const TestPages pages(4);
    const PageRangeList list = GatherPageRanges(pages.At(1, 123), 2 * testPageSize);
    ASSERT_EQ(list.count, 1u);
    ExpectRange(list[0], pages.At(1), 3 * testPageSize, 0x04);
}

TEST_F(ProcessMemory, LetsTheLastRangeReachBeyondTheEnd)
{
    const TestPages pages(8);
    pages.Protect(0, PAGE_READONLY);
    FakeQuery::Install();
    const PageRangeList list = GatherPageRanges(pages.At(0), testPageSize + 1);
    ASSERT_EQ(list.count, 2u);
    ExpectRange(list[1], pages.At(1), 7 * testPageSize, 0x04);
    EXPECT_EQ(FakeQuery::calls, 2u);
}

TEST_F(ProcessMemory, StopsWhereARangeEndsExactlyAtTheEnd)
{
    const TestPages pages(2);
    pages.Protect(0, PAGE_READONLY);
    FakeQuery::Install();
    EXPECT_EQ(GatherPageRanges(pages.At(0), testPageSize).count, 1u);
    EXPECT_EQ(FakeQuery::calls, 1u);
}

TEST_F(ProcessMemory, GivesAnEmptyListWithRoomFor1024RangesForSizeZeroWithoutAQuery)
{
    const TestPages pages(1);
    FakeQuery::Install();
    const PageRangeList list = GatherPageRanges(pages.At(0), 0);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.capacity, 1024u);
    EXPECT_EQ(list.size, 24576u);
    EXPECT_NE(list.pointer, nullptr);
    EXPECT_EQ(FakeQuery::calls, 0u);
    EXPECT_EQ(log.GetLines(), Lines{GatherLine(pages.At(0), 0)});
}

TEST_F(ProcessMemory, KeepsTheRangesSoFarWhenAQueryFailsHalfway)
{
    const TestPages pages(4);
    pages.Protect(1, PAGE_READONLY);
    pages.Protect(3, PAGE_READONLY);
    FakeQuery::Install();
    FakeQuery::firstFailure = 3;
    FakeQuery::failure = accessViolation;
    const PageRangeList list = GatherPageRanges(pages.At(0), 4 * testPageSize);
    ASSERT_EQ(list.count, 2u);
    ExpectRange(list[0], pages.At(0), testPageSize, 0x04);
    ExpectRange(list[1], pages.At(1), testPageSize, 0x02);
    EXPECT_EQ(FakeQuery::calls, 3u);
    EXPECT_EQ(log.GetLines().back(), "ERR Call to function NtQueryVirtualMemory failed. Error: 0xC0000005");
}

TEST_F(ProcessMemory, TakesEveryStatusOfAQueryButZeroForAFailure)
{
    const TestPages pages(1);
    FakeQuery::Install();
    FakeQuery::firstFailure = 1;
    FakeQuery::failure = 0x40000000;
    EXPECT_EQ(GatherPageRanges(pages.At(0), testPageSize).count, 0u);
    EXPECT_EQ(log.GetLines().back(), "ERR Call to function NtQueryVirtualMemory failed. Error: 0x40000000");
}

TEST_F(ProcessMemory, DoublesTheListBeyond1024Ranges)
{
    constexpr uint32_t pageCount = 1030;
    const TestPages pages(pageCount);
    for (uint32_t page = 0; page < pageCount; page += 2)
    {
        pages.Protect(page, PAGE_READONLY);
    }
    const PageRangeList list = GatherPageRanges(pages.At(0), pageCount * testPageSize);
    ASSERT_EQ(list.count, pageCount);
    EXPECT_EQ(list.capacity, 2048u);
    for (uint32_t page = 0; page < pageCount; ++page)
    {
        ExpectRange(list[page], pages.At(page), testPageSize, page % 2 == 0 ? 0x02 : 0x04);
    }
}

// Writing over code

TEST_F(ProcessMemory, WritesOverCodeAndRestoresItsProtection)
{
    const uint8_t returnOne[] = {0xB8, 0x01, 0x00, 0x00, 0x00, 0xC3}; // mov eax, 1; ret
    const TestPages pages(1);
    uint8_t* code = pages.At(0, 100);
    memcpy(code, returnOne, sizeof(returnOne));
    pages.Protect(0, PAGE_EXECUTE_READ);
    const auto function = reinterpret_cast<int (*)()>(code);
    EXPECT_EQ(function(), 1);

    const uint8_t two = 2;
    EXPECT_TRUE(WriteCode(code + 1, &two, 1));
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_EXECUTE_READ));
    EXPECT_EQ(function(), 2);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, WritesCodeAcrossAPageBoundary)
{
    const TestPages pages(2, PAGE_EXECUTE_READ);
    const uint8_t returnSeven[] = {0xB8, 0x07, 0x00, 0x00, 0x00, 0xC3}; // mov eax, 7; ret
    EXPECT_TRUE(WriteCode(pages.At(1, -3), returnSeven, sizeof(returnSeven)));
    EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_EXECUTE_READ));
    EXPECT_EQ(pages.GetProtection(1), static_cast<DWORD>(PAGE_EXECUTE_READ));
    EXPECT_EQ(reinterpret_cast<int (*)()>(pages.At(1, -3))(), 7);
}

TEST_F(ProcessMemory, CopiesEvenWhereTheProtectionCannotBeChanged)
{
    // The protection of two allocations can't be changed in one call.
    constexpr uint32_t granularity = 0x10000;
    const uint8_t bytes[] = {1, 2, 3, 4};
    uint8_t* base = nullptr;
    for (int attempt = 0; attempt < 100 && base == nullptr; ++attempt)
    {
        auto* place =
            static_cast<uint8_t*>(VirtualAlloc(nullptr, 2 * granularity, MEM_RESERVE, PAGE_NOACCESS));
        VirtualFree(place, 0, MEM_RELEASE);
        if (VirtualAlloc(place, granularity, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE) == nullptr)
        {
            continue;
        }
        if (VirtualAlloc(place + granularity, granularity, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE) ==
            nullptr)
        {
            VirtualFree(place, 0, MEM_RELEASE);
            continue;
        }
        base = place;
    }
    ASSERT_NE(base, nullptr);

    uint8_t* target = base + granularity - 2;
    WriteCode(target, bytes, sizeof(bytes));
    EXPECT_EQ(memcmp(target, bytes, sizeof(bytes)), 0);
    EXPECT_EQ(log.GetLines(), (Lines{ProtectFailureLine(target, 4, 4), ProtectFailureLine(target, 4, 0)}));
    VirtualFree(base, 0, MEM_RELEASE);
    VirtualFree(base + granularity, 0, MEM_RELEASE);
}

namespace
{
/// Keeps the calls that a write over code makes, in their order, with what is in the written bytes then.
class WriteJournal
{
public:
    explicit WriteJournal(const uint8_t* writtenTo)
        : target(writtenTo)
    {
    }

    Lines calls;
    uint32_t failingProtection = 0; ///< the number of the change of protection that fails, from 1; 0 for none
    BOOL flushed = TRUE;            ///< what the flush returns

private:
    struct Protect
    {
        WriteJournal& journal;

        BOOL operator()(decltype(&VirtualProtect) real, LPVOID address, SIZE_T size, DWORD protection,
                        PDWORD before) const
        {
            if (address != journal.target)
            {
                return real(address, size, protection, before); // of an import that is replaced
            }
            EXPECT_EQ(size, 1u);
            journal.calls.push_back(
                FormatLine("protect as 0x%X, byte %u", protection, unsigned{*journal.target}));
            if (++journal.protections == journal.failingProtection)
            {
                return FALSE;
            }
            return real(address, size, protection, before);
        }
    };

    struct Flush
    {
        WriteJournal& journal;

        BOOL operator()(decltype(&FlushInstructionCache), HANDLE process, LPCVOID address, SIZE_T size) const
        {
            EXPECT_EQ(process, GetCurrentProcess());
            EXPECT_EQ(address, journal.target);
            EXPECT_EQ(size, 1u);
            journal.calls.push_back(FormatLine("flush, byte %u", unsigned{*journal.target}));
            return journal.flushed;
        }
    };

    const uint8_t* target;
    uint32_t protections = 0;
    FakeImport<Protect> protect{"VirtualProtect", Protect{*this}};
    FakeImport<Flush> flush{"FlushInstructionCache", Flush{*this}};
};
} // namespace

TEST_F(ProcessMemory, FlushesWhatItHasWrittenOnceThePagesHaveTheirProtectionBack)
{
    const TestPages pages(1);
    pages.At(0)[100] = 1;
    pages.Protect(0, PAGE_EXECUTE_READ);
    const uint8_t two = 2;
    WriteJournal journal(pages.At(0, 100));
    EXPECT_TRUE(WriteCode(pages.At(0, 100), &two, 1));
    EXPECT_EQ(journal.calls, (Lines{"protect as 0x4, byte 1", "protect as 0x20, byte 2", "flush, byte 2"}));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, ReturnsTheResultOfTheFlush)
{
    const TestPages pages(1, PAGE_EXECUTE_READ);
    const uint8_t two = 2;
    WriteJournal journal(pages.At(0));
    journal.flushed = 7;
    EXPECT_TRUE(WriteCode(pages.At(0), &two, 1));
    journal.flushed = FALSE;
    EXPECT_FALSE(WriteCode(pages.At(0), &two, 1));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, ReportsAProtectionThatCannotBeRestoredAndFlushesAllTheSame)
{
    const TestPages pages(1, PAGE_EXECUTE_READ);
    const uint8_t two = 2;
    WriteJournal journal(pages.At(0));
    journal.failingProtection = 2;
    EXPECT_TRUE(WriteCode(pages.At(0), &two, 1));
    EXPECT_EQ(journal.calls, (Lines{"protect as 0x4, byte 0", "protect as 0x20, byte 2", "flush, byte 2"}));
    EXPECT_EQ(log.GetLines(), Lines{ProtectFailureLine(pages.At(0), 1, PAGE_EXECUTE_READ)});
}

// The environment block

namespace
{
/// The pointer to this process's environment block, where the OS keeps it.
const void*& EnvironmentPointer()
{
    PROCESS_BASIC_INFORMATION basic = {};
    GetWindowsInternalAPI().NtQueryInformationProcess(GetCurrentProcess(), ProcessBasicInformation, &basic,
                                                      sizeof(basic), nullptr);
    auto* parameters = *reinterpret_cast<uint8_t**>(reinterpret_cast<uint8_t*>(basic.PebBaseAddress) + 0x10);
    return *reinterpret_cast<const void**>(parameters + 0x48);
}

/// Puts another block in the place of this process's environment as long as it lives.
class SwappedEnvironment
{
public:
    explicit SwappedEnvironment(const void* block)
        : before(EnvironmentPointer())
    {
        EnvironmentPointer() = block;
    }

    ~SwappedEnvironment()
    {
        EnvironmentPointer() = before;
    }

private:
    const void* before;
};

bool Contains(const OwnedAllocation& buffer, const wchar_t* text)
{
    const std::wstring all(static_cast<const wchar_t*>(buffer.Get().pointer),
                           buffer.Get().size / sizeof(wchar_t));
    return all.find(text) != std::wstring::npos;
}

size_t DistanceToRegionEnd(const void* address)
{
    MEMORY_BASIC_INFORMATION region = {};
    VirtualQuery(address, &region, sizeof(region));
    return static_cast<size_t>(static_cast<const uint8_t*>(region.BaseAddress) + region.RegionSize -
                               static_cast<const uint8_t*>(address));
}
} // namespace

TEST_F(ProcessMemory, CopiesTheEnvironmentUpToTheEndOfItsRegion)
{
    ASSERT_TRUE(SetEnvironmentVariableW(L"TorvaneTestVariable", L"a value of its own"));
    const void* environment = EnvironmentPointer();
    OwnedAllocation buffer = ReadEnvironmentBlock(GetCurrentProcess());
    ASSERT_NE(buffer.Get().pointer, nullptr);
    EXPECT_EQ(buffer.Get().size, DistanceToRegionEnd(environment));
    EXPECT_TRUE(Contains(buffer, L"TorvaneTestVariable=a value of its own"));
    EXPECT_EQ(log.GetLines(), Lines());
    SetEnvironmentVariableW(L"TorvaneTestVariable", nullptr);
}

TEST_F(ProcessMemory, CopiesExactlyAnEnvironmentThatEndsAtTheEndOfItsRegion)
{
    const wchar_t block[] = L"A=1\0Path=C:\\a;C:\\b\0"; // and the literal's own end mark
    const TestPages pages(2);
    pages.Protect(1, PAGE_NOACCESS);
    uint8_t* environment = pages.At(1, -static_cast<int32_t>(sizeof(block)));
    memset(pages.At(0), 0xEE, testPageSize);
    memcpy(environment, block, sizeof(block));

    OwnedAllocation buffer;
    {
        const SwappedEnvironment swapped(environment);
        buffer = ReadEnvironmentBlock(GetCurrentProcess());
    }
    ASSERT_EQ(buffer.Get().size, sizeof(block));
    EXPECT_EQ(memcmp(buffer.Get().pointer, block, sizeof(block)), 0);
}

TEST_F(ProcessMemory, ReadsTheBlockOfTheProcessAndItsParametersAndTheEnvironmentAndNoByteMore)
{
    const TestPages pages(2);
    pages.Protect(1, PAGE_NOACCESS);
    const uint8_t* environment = pages.At(1, -60);
    PROCESS_BASIC_INFORMATION basic = {};
    GetWindowsInternalAPI().NtQueryInformationProcess(GetCurrentProcess(), ProcessBasicInformation, &basic,
                                                      sizeof(basic), nullptr);
    const auto* block = reinterpret_cast<const uint8_t*>(basic.PebBaseAddress);
    const void* parameters = *reinterpret_cast<const void* const*>(block + 0x10);
    const struct
    {
        const void* address;
        SIZE_T size;
    } expected[] = {{block, 0x1D8}, {parameters, 0x4C}, {environment, 60}};
    {
        const SwappedEnvironment swapped(environment);
        ReadDouble::Install(0, 0);
        EXPECT_EQ(ReadEnvironmentBlock(GetCurrentProcess()).Get().size, 60u);
    }
    ASSERT_EQ(ReadDouble::arguments.size(), 3u);
    for (size_t i = 0; i < 3; ++i)
    {
        EXPECT_EQ(ReadDouble::arguments[i].process, GetCurrentProcess()) << i;
        EXPECT_EQ(ReadDouble::arguments[i].address, expected[i].address) << i;
        EXPECT_EQ(ReadDouble::arguments[i].size, expected[i].size) << i;
        EXPECT_EQ(ReadDouble::arguments[i].read, nullptr) << i;
    }
}

TEST_F(ProcessMemory, CopiesTheBytesAfterTheEndMarkOfTheEnvironment)
{
    const wchar_t block[] = L"A=1\0";
    const TestPages pages(4);
    pages.Protect(3, PAGE_NOACCESS);
    memset(pages.At(0), 0xEE, 3 * testPageSize);
    memcpy(pages.At(1, 256), block, sizeof(block));

    OwnedAllocation buffer;
    {
        const SwappedEnvironment swapped(pages.At(1, 256));
        buffer = ReadEnvironmentBlock(GetCurrentProcess());
    }
    ASSERT_EQ(buffer.Get().size, 2 * testPageSize - 256);
    EXPECT_EQ(memcmp(buffer.Get().pointer, pages.At(1, 256), buffer.Get().size), 0);
}

TEST_F(ProcessMemory, GivesNoEnvironmentOfAProcessThatCannotBeQueriedWithoutALine)
{
    const OwnedAllocation buffer = ReadEnvironmentBlock(nullptr);
    EXPECT_EQ(buffer.Get().pointer, nullptr);
    EXPECT_EQ(buffer.Get().size, 0u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, GivesNoEnvironmentAfterAnErrorLineIfAReadFails)
{
    // The block of the process, its parameters, and the environment, in this order.
    for (uint32_t failingRead = 1; failingRead <= 3; ++failingRead)
    {
        log.Clear();
        ReadDouble::Install(failingRead, static_cast<NTSTATUS>(0x8000000D));
        const OwnedAllocation buffer = ReadEnvironmentBlock(GetCurrentProcess());
        EXPECT_EQ(ReadDouble::calls, failingRead);
        EXPECT_EQ(buffer.Get().pointer, nullptr);
        EXPECT_EQ(buffer.Get().size, 0u);
        EXPECT_EQ(log.GetLines(),
                  Lines{"ERR Call to function NtReadVirtualMemory failed. Error: 0x8000000D"});
    }
}

TEST_F(ProcessMemory, FreesTheBufferWhenTheEnvironmentCannotBeRead)
{
    const TestPages pages(1);
    const SwappedEnvironment swapped(pages.At(0, testPageSize - 64));
    const Allocation before = Allocate(64);
    void* const expected = before.pointer;
    Free(before.pointer, before.size);
    ReadDouble::Install(3, accessViolation);
    EXPECT_EQ(ReadEnvironmentBlock(GetCurrentProcess()).Get().pointer, nullptr);

    // The pool hands out first what came back last.
    Allocation after = Allocate(64);
    EXPECT_EQ(after.pointer, expected);
    Free(after);
}

TEST_F(ProcessMemory, GivesNoEnvironmentWithoutALineIfItsRegionCannotBeQueried)
{
    FakeQuery::Install();
    FakeQuery::firstFailure = 1;
    FakeQuery::failure = accessViolation;
    const OwnedAllocation buffer = ReadEnvironmentBlock(GetCurrentProcess());
    EXPECT_EQ(buffer.Get().pointer, nullptr);
    EXPECT_EQ(buffer.Get().size, 0u);
    EXPECT_EQ(FakeQuery::calls, 1u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, CopiesTheEnvironmentOfAnotherProcess)
{
    wchar_t program[MAX_PATH];
    ASSERT_NE(GetModuleFileNameW(nullptr, program, MAX_PATH), 0u);
    wchar_t environment[] = L"SystemRoot=C:\\windows\0TorvaneChild=that of the child\0";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION child = {};
    ASSERT_TRUE(CreateProcessW(program, nullptr, nullptr, nullptr, FALSE,
                               CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT, environment, nullptr, &startup,
                               &child));

    OwnedAllocation buffer = ReadEnvironmentBlock(child.hProcess);
    EXPECT_NE(buffer.Get().pointer, nullptr);
    if (buffer.Get().pointer != nullptr)
    {
        EXPECT_TRUE(Contains(buffer, L"TorvaneChild=that of the child"));
    }
    TerminateProcess(child.hProcess, 0);
    EXPECT_EQ(WaitForSingleObject(child.hProcess, testTimeout), WAIT_OBJECT_0) << "The child doesn't end.";
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
}

// Executable pages

TEST_F(ProcessMemory, TurnsAPageIntoItsExecutableTwin)
{
    const struct
    {
        DWORD before;
        DWORD after;
    } twins[] = {
        {PAGE_NOACCESS, PAGE_EXECUTE},
        {PAGE_READONLY, PAGE_EXECUTE_READ},
        {PAGE_READWRITE, PAGE_EXECUTE_READWRITE},
    };
    for (const auto& twin : twins)
    {
        log.Clear();
        const TestPages pages(3, twin.before);
        MakePageExecutable(pages.At(2, -5));
        EXPECT_EQ(pages.GetProtection(0), twin.before);
        EXPECT_EQ(pages.GetProtection(1), twin.after);
        EXPECT_EQ(pages.GetProtection(2), twin.before);
        EXPECT_EQ(log.GetLines(), Lines{ConversionLine(pages.At(1), twin.before, twin.after)});
    }
}

TEST_F(ProcessMemory, TurnsACopyOnWritePageIntoItsExecutableTwin)
{
    const HANDLE mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_EXECUTE_READWRITE, 0, testPageSize, nullptr);
    void* view = MapViewOfFile(mapping, FILE_MAP_COPY | FILE_MAP_EXECUTE, 0, 0, testPageSize);
    ASSERT_NE(view, nullptr);
    DWORD before = 0;
    ASSERT_TRUE(VirtualProtect(view, testPageSize, PAGE_WRITECOPY, &before));
    ASSERT_EQ(TestPages::GetProtectionOf(view), static_cast<DWORD>(PAGE_WRITECOPY));

    MakePageExecutable(static_cast<uint8_t*>(view) + 17);
    EXPECT_EQ(TestPages::GetProtectionOf(view), static_cast<DWORD>(PAGE_EXECUTE_WRITECOPY));
    EXPECT_EQ(log.GetLines(), Lines{ConversionLine(view, PAGE_WRITECOPY, PAGE_EXECUTE_WRITECOPY)});
    UnmapViewOfFile(view);
    CloseHandle(mapping);
}

TEST_F(ProcessMemory, KeepsTheGuardOfAPageThatItMakesExecutable)
{
    const TestPages pages(1);
    pages.Protect(0, PAGE_READWRITE | PAGE_GUARD);
    ASSERT_EQ(pages.GetProtection(0), 0x104u);
    MakePageExecutable(pages.At(0));
    EXPECT_EQ(pages.GetProtection(0), 0x140u);
    EXPECT_EQ(log.GetLines(), Lines{ConversionLine(pages.At(0), 0x104, 0x140)});
}

TEST_F(ProcessMemory, LeavesPagesAloneThatAreExecutableAlready)
{
    for (const DWORD protection : {PAGE_EXECUTE, PAGE_EXECUTE_READ, PAGE_EXECUTE_READWRITE})
    {
        const TestPages pages(1, protection);
        MakePageExecutable(pages.At(0));
        EXPECT_EQ(pages.GetProtection(0), protection);
    }
    const TestPages guarded(1, PAGE_EXECUTE_READ | PAGE_GUARD);
    MakePageExecutable(guarded.At(0));
    EXPECT_EQ(guarded.GetProtection(0), 0x120u);
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, LeavesReservedPagesAlone)
{
    const TestPages pages(2, PAGE_READWRITE, MEM_RESERVE);
    MakePageExecutable(pages.At(1));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, LooksAtTheLowByteAloneForTheBaseProtection)
{
    const TestPages pages(1);
    FakeQuery::Install();
    FakeQuery::protection = 0x602; // read-only, not cached, write-combined
    MakePageExecutable(pages.At(0));
    EXPECT_EQ(log.GetLines(), Lines{ConversionLine(pages.At(0), 0x602, 0x620)});

    log.Clear();
    FakeQuery::protection = 0x03; // no single base protection
    MakePageExecutable(pages.At(0));
    FakeQuery::protection = 0x100;
    MakePageExecutable(pages.At(0));
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(ProcessMemory, ReportsAPageThatCannotBeQueried)
{
    const TestPages pages(1);
    for (const NTSTATUS status : {accessViolation, NTSTATUS{0x40000000}})
    {
        log.Clear();
        FakeQuery::Install();
        FakeQuery::calls = 0;
        FakeQuery::firstFailure = 1;
        FakeQuery::failure = status;
        MakePageExecutable(pages.At(0));
        EXPECT_EQ(pages.GetProtection(0), static_cast<DWORD>(PAGE_READWRITE));
        EXPECT_EQ(log.GetLines(),
                  Lines{FormatLine("ERR Call to function NtQueryVirtualMemory failed. Error: 0x%X", status)});
    }
}

TEST_F(ProcessMemory, LogsNothingIfTheProtectionCannotBeChanged)
{
    // A view of a section that doesn't allow execution.
    const HANDLE mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, testPageSize, nullptr);
    void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, testPageSize);
    ASSERT_NE(view, nullptr);
    DWORD before = 0;
    ASSERT_FALSE(VirtualProtect(view, testPageSize, PAGE_EXECUTE_READ, &before));

    MakePageExecutable(view);
    EXPECT_EQ(TestPages::GetProtectionOf(view), static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(log.GetLines(), Lines{ConversionLine(view, PAGE_READONLY, PAGE_EXECUTE_READ)});
    UnmapViewOfFile(view);
    CloseHandle(mapping);
}
} // namespace Torvane::Testing
