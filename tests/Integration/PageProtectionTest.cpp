#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// SetPageProtectionWindows and FlushInstructionCache.

namespace
{
constexpr uint32_t pageSize = 4096;
} // namespace

#if TORVANE_HOST_HALF

namespace
{
uint8_t* AllocatePages(uint32_t count)
{
    return static_cast<uint8_t*>(
        VirtualAlloc(nullptr, count * pageSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
}

DWORD ProtectionOf(const void* address)
{
    MEMORY_BASIC_INFORMATION region = {};
    VirtualQuery(address, &region, sizeof(region));
    return region.Protect;
}

/// The words for a range that was refused.
std::string FailureWords(const void* address, uint32_t size, uint32_t protection)
{
    char text[128];
    snprintf(text, sizeof(text), "VirtualProtect() failed: address 0x%08X, size 0x%X, protection 0x%X",
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)), size, protection);
    return text;
}

/// The tag of the record with that message.
std::string TagOf(const std::vector<LogRecord>& log, const std::string& message)
{
    for (const LogRecord& record : log)
    {
        if (record.message == message)
        {
            return record.tag;
        }
    }
    return "no such record";
}
} // namespace

HOST_TEST(PageProtection, SetsEveryProtection)
{
    Publish("page", AllocatePages(1));
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    ExpectNoErrorsInLog();
}

HOST_TEST(PageProtection, SetsEachOfSeveralRanges)
{
    uint8_t* pages = AllocatePages(8);
    Publish("pages", pages);
    StartDefaultAgent();
    EXPECT_TRUE(Await("set"));
    const DWORD expected[] = {PAGE_READONLY, PAGE_READONLY, PAGE_READWRITE,    PAGE_EXECUTE_READ,
                              PAGE_NOACCESS, PAGE_NOACCESS, PAGE_EXECUTE_READ, PAGE_READWRITE};
    for (uint32_t i = 0; i < 8; ++i)
    {
        EXPECT_EQ(expected[i], ProtectionOf(pages + i * pageSize)) << "Page " << i;
    }
    EXPECT_EQ(1u, CountInLog("Processing Blob::SetPageProtectionWindows"));
}

HOST_TEST(PageProtection, SetsAllPagesThatARangeTouches)
{
    uint8_t* pages = AllocatePages(4);
    Publish("pages", pages);
    StartDefaultAgent();
    EXPECT_TRUE(Await("set"));
    EXPECT_EQ(DWORD(PAGE_READWRITE), ProtectionOf(pages));
    EXPECT_EQ(DWORD(PAGE_READONLY), ProtectionOf(pages + pageSize));
    EXPECT_EQ(DWORD(PAGE_READONLY), ProtectionOf(pages + 2 * pageSize));
    EXPECT_EQ(DWORD(PAGE_READWRITE), ProtectionOf(pages + 3 * pageSize));
}

HOST_TEST(PageProtection, LeavesRangesOfProtection0AsTheyAre)
{
    uint8_t* pages = AllocatePages(3);
    Publish("pages", pages);
    StartDefaultAgent();
    EXPECT_TRUE(Await("set"));
    EXPECT_EQ(DWORD(PAGE_READWRITE), ProtectionOf(pages));
    EXPECT_EQ(DWORD(PAGE_READWRITE), ProtectionOf(pages + pageSize));
    EXPECT_EQ(DWORD(PAGE_READONLY), ProtectionOf(pages + 2 * pageSize));
    for (const LogRecord& record : ReadLog())
    {
        EXPECT_EQ(std::string::npos, record.message.find("VirtualProtect")) << record.message;
    }
}

HOST_TEST(PageProtection, LogsEachRefusedRangeAndContinues)
{
    uint8_t* pages = AllocatePages(2);
    uint8_t* given = AllocatePages(2);
    ASSERT_TRUE(VirtualFree(given, 0, MEM_RELEASE));
    uint8_t* reserved = static_cast<uint8_t*>(VirtualAlloc(nullptr, pageSize, MEM_RESERVE, PAGE_READWRITE));
    Publish("pages", pages);
    Publish("reserved", reserved);
    StartDefaultAgent();
    EXPECT_TRUE(Await("set"));
    const std::string words[] = {FailureWords(reserved, 0x1000, PAGE_READONLY),
                                 FailureWords(pages, 0x123, 0x3),
                                 FailureWords(nullptr, 0x2000, PAGE_EXECUTE_READWRITE)};
    ExpectLogOrder({"Processing Blob::SetPageProtectionWindows", words[0], words[1], words[2]});
    for (const std::string& text : words)
    {
        EXPECT_EQ(1u, CountInLog(text));
        EXPECT_EQ("DBG", TagOf(ReadLog(), text)) << text;
    }
    ExpectNoErrorsInLog();
    EXPECT_EQ(DWORD(PAGE_READWRITE), ProtectionOf(pages));
    EXPECT_EQ(DWORD(PAGE_READONLY), ProtectionOf(pages + pageSize));
}

HOST_TEST(PageProtection, DoesNothingForAnEmptyList)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("set"));
    EXPECT_EQ(1u, CountInLog("Processing Blob::SetPageProtectionWindows"));
    ExpectNoErrorsInLog();
}

HOST_TEST(PageProtection, IgnoresTheUpperHalfOfAnAddress)
{
    uint8_t* pages = AllocatePages(1);
    Publish("pages", pages);
    StartDefaultAgent();
    EXPECT_TRUE(Await("set"));
    EXPECT_EQ(DWORD(PAGE_READONLY), ProtectionOf(pages));
}

HOST_TEST(PageProtection, OpensAReadOnlyPageForWriting)
{
    uint8_t* pages = AllocatePages(1);
    memset(pages, 0x11, pageSize);
    DWORD before = 0;
    ASSERT_TRUE(VirtualProtect(pages, pageSize, PAGE_READONLY, &before));
    Publish("pages", pages);
    StartDefaultAgent();
    EXPECT_TRUE(Await("written"));
    EXPECT_EQ(DWORD(PAGE_READONLY), ProtectionOf(pages));
    EXPECT_EQ(0x11, pages[0]);
    EXPECT_EQ(0x22, pages[1]);
    EXPECT_EQ(0x33, pages[2]);
    EXPECT_EQ(0x11, pages[3]);
}

namespace
{
/// A call of `FlushInstructionCache` that the Agent has made, and what was in the test's code then.
struct Flush
{
    HANDLE process;
    const void* address;
    SIZE_T size;
    uint8_t code;
    DWORD protection;
};

std::vector<Flush> flushes; ///< written by the receiver thread, read once all is executed
const uint8_t* watchedByte = nullptr;

BOOL WINAPI KeepFlush(HANDLE process, const void* address, SIZE_T size)
{
    flushes.push_back({process, address, size, watchedByte != nullptr ? *watchedByte : uint8_t{0},
                       watchedByte != nullptr ? ProtectionOf(watchedByte) : 0});
    return FlushInstructionCache(process, address, size);
}

void ExpectWholeCache(const Flush& flush)
{
    EXPECT_EQ(GetCurrentProcess(), flush.process);
    EXPECT_EQ(nullptr, flush.address);
    EXPECT_EQ(0u, flush.size);
}
} // namespace

HOST_TEST(PageProtection, OpensAPageOfCodeWhichIsRunOnceItIsFlushed)
{
    using Function = int (*)();
    static const uint8_t code[] = {0xB8, 0x2A, 0x00, 0x00, 0x00, 0xC3}; // mov eax, 42; ret
    uint8_t* page = AllocatePages(1);
    memcpy(page, code, sizeof(code));
    DWORD before = 0;
    ASSERT_TRUE(VirtualProtect(page, pageSize, PAGE_EXECUTE_READ, &before));
    const Function function = reinterpret_cast<Function>(reinterpret_cast<void*>(page));
    EXPECT_EQ(42, function());
    Publish("code", page);
    watchedByte = page + 1;
    ReplaceImport("FlushInstructionCache", &KeepFlush);
    StartDefaultAgent();
    EXPECT_TRUE(Await("patched"));
    ASSERT_EQ(1u, flushes.size());
    ExpectWholeCache(flushes[0]);
    EXPECT_EQ(43, flushes[0].code);
    EXPECT_EQ(DWORD(PAGE_EXECUTE_READ), flushes[0].protection);
    EXPECT_EQ(43, function());
    EXPECT_EQ(DWORD(PAGE_EXECUTE_READ), ProtectionOf(page));
    ExpectLogOrder({"Processing Blob::SetPageProtectionWindows", "Processing Blob::WriteMemory",
                    "Processing Blob::SetPageProtectionWindows", "Processing Blob::FlushInstructionCache"});
    ExpectNoErrorsInLog();
}

HOST_TEST(PageProtection, FlushingReadsNothingOfItsBlob)
{
    ReplaceImport("FlushInstructionCache", &KeepFlush);
    StartDefaultAgent();
    EXPECT_TRUE(Await("flushed"));
    ASSERT_EQ(2u, flushes.size());
    ExpectWholeCache(flushes[0]);
    ExpectWholeCache(flushes[1]);
    EXPECT_EQ(2u, CountInLog("Processing Blob::FlushInstructionCache"));
    ExpectNoErrorsInLog();
}

#else

namespace
{
WirePageRange Pages(AddressSlot base, uint64_t first, uint64_t count, uint32_t protection)
{
    return {base + first * pageSize, count * pageSize, protection, 0};
}

class ProtectionBridge : public ConnectedBridgeTest
{
protected:
    void Set(const std::vector<WirePageRange>& ranges)
    {
        ASSERT_TRUE(SendSetPageProtection(link, ranges));
        ExpectNoReply();
    }
};
} // namespace

#define PROTECTION_BRIDGE(Name) BRIDGE_SCENARIO_OF(ProtectionBridge, PageProtection, Name)

PROTECTION_BRIDGE(SetsEveryProtection)
{
    const AddressSlot page = AwaitNumber("page");
    for (const uint32_t protection :
         {PAGE_NOACCESS, PAGE_READONLY, PAGE_READWRITE, PAGE_EXECUTE, PAGE_EXECUTE_READ,
          PAGE_EXECUTE_READWRITE, PAGE_READWRITE | PAGE_GUARD, PAGE_READWRITE})
    {
        Set({Pages(page, 0, 1, protection)});
        EXPECT_EQ(protection, host.QueryPages(page).protection);
    }
}

PROTECTION_BRIDGE(SetsEachOfSeveralRanges)
{
    const AddressSlot pages = AwaitNumber("pages");
    Set({Pages(pages, 6, 1, PAGE_EXECUTE_READ), Pages(pages, 0, 2, PAGE_READONLY),
         Pages(pages, 3, 3, PAGE_EXECUTE_READ), Pages(pages, 4, 2, PAGE_NOACCESS)});
    Signal("set");
}

PROTECTION_BRIDGE(SetsAllPagesThatARangeTouches)
{
    Set({{AwaitNumber("pages") + 2 * pageSize - 1, 2, PAGE_READONLY, 0}});
    Signal("set");
}

PROTECTION_BRIDGE(LeavesRangesOfProtection0AsTheyAre)
{
    const AddressSlot pages = AwaitNumber("pages");
    Set({Pages(pages, 0, 3, 0), Pages(0, 0, 1, 0), Pages(pages, 2, 1, PAGE_READONLY), Pages(pages, 2, 1, 0)});
    Signal("set");
}

PROTECTION_BRIDGE(LogsEachRefusedRangeAndContinues)
{
    const AddressSlot pages = AwaitNumber("pages");
    Set({Pages(AwaitNumber("reserved"), 0, 1, PAGE_READONLY),
         {pages, 0x123, 0x3, 0}, // no protection at all
         Pages(0, 0, 2, PAGE_EXECUTE_READWRITE),
         Pages(pages, 1, 1, PAGE_READONLY)});
    Signal("set");
}

PROTECTION_BRIDGE(DoesNothingForAnEmptyList)
{
    Set({});
    Signal("set");
}

PROTECTION_BRIDGE(IgnoresTheUpperHalfOfAnAddress)
{
    Set({Pages(AwaitNumber("pages") | 0x1234567800000000, 0, 1, PAGE_READONLY)});
    Signal("set");
}

PROTECTION_BRIDGE(OpensAReadOnlyPageForWriting)
{
    const AddressSlot pages = AwaitNumber("pages");
    ASSERT_TRUE(SendSetPageProtection(link, {Pages(pages, 0, 1, PAGE_READWRITE)}));
    ASSERT_TRUE(SendWriteMemory(link, {pages + 1, pages + 2}, {0x22, 0x33}));
    Set({Pages(pages, 0, 1, PAGE_READONLY)});
    Signal("written");
}

PROTECTION_BRIDGE(OpensAPageOfCodeWhichIsRunOnceItIsFlushed)
{
    const AddressSlot code = AwaitNumber("code");
    ASSERT_TRUE(SendSetPageProtection(link, {Pages(code, 0, 1, PAGE_EXECUTE_READWRITE)}));
    ASSERT_TRUE(SendWriteMemory(link, {code + 1}, {43}));
    ASSERT_TRUE(SendSetPageProtection(link, {Pages(code, 0, 1, PAGE_EXECUTE_READ)}));
    ASSERT_TRUE(SendFlushInstructionCache(link));
    ExpectNoReply();
    Signal("patched");
}

PROTECTION_BRIDGE(FlushingReadsNothingOfItsBlob)
{
    const std::vector<uint8_t> payload(1000, 0xFF);
    ASSERT_TRUE(SendFlushInstructionCache(link));
    ASSERT_TRUE(link.Send(MakeBlob(BlobType::FlushInstructionCache, payload.data(), payload.size())));
    ExpectNoReply();
    Signal("flushed");
}

#endif
