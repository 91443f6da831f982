#include "tests/Support/Integration/IntegrationTest.h"
#include "tests/Support/TestThread.h"

#include <windows.h>

// The Agent at work while threads of the host own the locks of the process heap and of the loader.
//
// Nothing in the host may allocate meanwhile, this test itself least of all: so no assertion, no text and no call
// to the Bridge half between the parking of the two threads and their end.

namespace
{
constexpr uint32_t pushCount = 500;
constexpr uint32_t written = 0x600DF00D;
} // namespace

#if TORVANE_HOST_HALF

namespace
{
constexpr DWORD parkLimit = 20000; // milliseconds; without it, a fault would hang the whole test

struct Words
{
    volatile uint32_t source = 0x12345678;
    volatile uint32_t copy = 0;
    volatile uint32_t release = 0; ///< the Bridge lets the parked threads go
};
Words words;

volatile LONG readyThreads; ///< threads that have started, and the test itself once it has created them
constexpr LONG allThreads = 5;
volatile LONG parkedThreads;
volatile LONG givenUp;

/// Waits until every thread runs. The start of a thread takes both locks, and so does making one.
void WaitForAllThreads()
{
    InterlockedIncrement(&readyThreads);
    while (readyThreads != allThreads)
    {
        Sleep(1);
    }
}

/// Stands still until the Bridge has written `release`.
void Park()
{
    InterlockedIncrement(&parkedThreads);
    const ULONGLONG end = GetTickCount64() + parkLimit;
    while (words.release != written)
    {
        if (GetTickCount64() > end)
        {
            InterlockedIncrement(&givenUp);
            return;
        }
        Sleep(1);
    }
}

void ParkInsideTheHeap()
{
    WaitForAllThreads();
    HeapLock(GetProcessHeap());
    Park();
    HeapUnlock(GetProcessHeap());
}

void ParkInsideTheLoader()
{
    using Lock = LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*);
    using Unlock = LONG(NTAPI*)(ULONG, ULONG_PTR);
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    const auto lock =
        reinterpret_cast<Lock>(reinterpret_cast<void*>(GetProcAddress(ntdll, "LdrLockLoaderLock")));
    const auto unlock =
        reinterpret_cast<Unlock>(reinterpret_cast<void*>(GetProcAddress(ntdll, "LdrUnlockLoaderLock")));
    WaitForAllThreads();
    while (parkedThreads == 0) // both locks in one order everywhere: the heap's first
    {
        Sleep(1);
    }
    ULONG_PTR cookie = 0;
    lock(0, nullptr, &cookie);
    Park();
    unlock(0, cookie);
}
} // namespace

HOST_TEST(HeldLocks, AgentWorksWithHeapAndLoaderLocked)
{
    Publish("source", const_cast<uint32_t*>(&words.source));
    Publish("copy", const_cast<uint32_t*>(&words.copy));
    Publish("release", const_cast<uint32_t*>(&words.release));
    TvnDefaultAgent& agent = ConnectDefaultAgent();

    const auto push = [&agent] {
        WaitForAllThreads();
        while (parkedThreads != 2 && givenUp == 0)
        {
            Sleep(1);
        }
        for (uint32_t i = 0; i < pushCount; ++i)
        {
            agent.TvnSetIntPreferences(i, 1);
            agent.TvnLogMessage(L"wide");
            agent.TvnLogMessageANSI("narrow");
            agent.TvnSetStringPreferences(i, "text");
        }
    };
    {
        TestThread first(push);
        TestThread second(push);
        TestThread heap(ParkInsideTheHeap);
        TestThread loader(ParkInsideTheLoader);
        WaitForAllThreads();
    }
    EXPECT_EQ(0, givenUp) << "The Bridge hasn't written into the memory of the host.";
    EXPECT_EQ(words.source, words.copy);
    EXPECT_EQ(2 * pushCount, CountInLog("API TvnSetIntPreferences"));
    EXPECT_EQ(2 * pushCount, CountInLog("API TvnLogMessage"));
    EXPECT_EQ(2 * pushCount, CountInLog("API TvnLogMessageANSI"));
    EXPECT_EQ(2 * pushCount, CountInLog("API TvnSetStringPreferences"));
    ExpectNoErrorsInLog();
}

#else

BRIDGE_SCENARIO(HeldLocks, AgentWorksWithHeapAndLoaderLocked)
{
    const AddressSlot source = AwaitNumber("source");
    const AddressSlot copy = AwaitNumber("copy");
    const AddressSlot release = AwaitNumber("release");
    uint32_t count[4] = {};
    for (uint32_t i = 0; i < 4 * 2 * pushCount; ++i)
    {
        const Message message = Receive();
        ASSERT_TRUE(message) << "after " << i << " Blobs";
        count[0] += message.Type() == BlobType::SetIntPreferences;
        count[1] += message.Type() == BlobType::SetStringPreferences;
        count[2] += message.Type() == BlobType::LogWide;
        count[3] += message.Type() == BlobType::LogNarrow;
    }
    for (const uint32_t ofEach : count)
    {
        EXPECT_EQ(2 * pushCount, ofEach);
    }
    ASSERT_TRUE(SendReadMemory(link, 4, {source}, 1));
    const auto read = WaitFor<ReadMemoryResultBlob>();
    ASSERT_TRUE(read);
    const std::vector<uint8_t> expected = {0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(expected, read.Data(read->data, 4));
    ASSERT_TRUE(SendCopyMemory(link, 4, {source}, {copy}));
    ASSERT_TRUE(Fence());
    EXPECT_EQ(expected, host.Read(copy, 4));
    const auto* word = reinterpret_cast<const uint8_t*>(&written);
    ASSERT_TRUE(SendWriteMemory(link, {release}, std::vector<uint8_t>(word, word + sizeof(written))));
}

#endif
