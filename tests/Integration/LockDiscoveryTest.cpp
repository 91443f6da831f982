#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The locks, and the code to park threads in, that an Agent registers with its Bridge.

#if TORVANE_HOST_HALF

#include "tests/Support/HeapLock.h"
#include "tests/Support/OperatingSystem.h"

#include <string.h>

namespace
{
constexpr char foundHeapLock[] = "Found process heap critical section at 0x";
constexpr char noHeapLock[] = "Failed to find process heap critical section";

std::string Hexadecimal(uint64_t address)
{
    char text[32];
    snprintf(text, sizeof(text), "%08llX", static_cast<unsigned long long>(address));
    return text;
}

/// Enters the loader's lock until the Bridge has looked at it.
class LockedLoader
{
public:
    LockedLoader()
    {
        const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
        using Lock = LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*);
        const auto lock =
            reinterpret_cast<Lock>(reinterpret_cast<void*>(GetProcAddress(ntdll, "LdrLockLoaderLock")));
        unlock =
            reinterpret_cast<Unlock>(reinterpret_cast<void*>(GetProcAddress(ntdll, "LdrUnlockLoaderLock")));
        EXPECT_EQ(0, lock(0, nullptr, &cookie));
    }

    ~LockedLoader()
    {
        unlock(0, cookie);
    }

    LockedLoader(const LockedLoader&) = delete;
    LockedLoader& operator=(const LockedLoader&) = delete;

private:
    using Unlock = LONG(NTAPI*)(ULONG, ULONG_PTR);
    Unlock unlock = nullptr;
    ULONG_PTR cookie = 0;
};
} // namespace

namespace
{
/// What the Agent takes for the process heap: a header whose word at an offset leads to a lock.
struct FakeHeap
{
    static inline uint8_t header[0x100];
    static inline RTL_CRITICAL_SECTION lock;

    static void PutLockAt(uint32_t offset)
    {
        const RTL_CRITICAL_SECTION* address = &lock;
        memcpy(header + offset, &address, sizeof(address));
    }

    static HANDLE WINAPI Get()
    {
        return header;
    }

    /// As the OS has it: -2 for a lock that is taken and that nobody waits for.
    static BOOL WINAPI Lock(HANDLE)
    {
        lock.OwningThread = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(GetCurrentThreadId()));
        lock.RecursionCount = 1;
        lock.LockCount = -2;
        return TRUE;
    }

    static BOOL WINAPI Unlock(HANDLE)
    {
        lock = {};
        lock.LockCount = -1;
        return TRUE;
    }
};

class LockDiscoveryHost : public HostTest
{
protected:
    void ConnectWithFakeHeap()
    {
        UseScenario("LockDiscovery.RegistersTheHeapsLock");
        Library();
        ReplaceImport("GetProcessHeap", &FakeHeap::Get);
        ReplaceImport("HeapLock", &FakeHeap::Lock);
        ReplaceImport("HeapUnlock", &FakeHeap::Unlock);
        ConnectDefaultAgent();
    }

    void ExpectHeapsLock(uint64_t lock, const std::string& outcome)
    {
        EXPECT_EQ(lock, AwaitNumber("heap lock"));
        ExpectLogOrder({"Registering process with bridge", outcome, "Initialization done"});
        EXPECT_EQ(1u, CountInLog(outcome));
        EXPECT_EQ(-1, FakeHeap::lock.LockCount) << "The search has unlocked it.";
    }
};
} // namespace

HOST_TEST_OF(LockDiscoveryHost, LockDiscovery, RegistersTheHeapsLock)
{
    FakeHeap::PutLockAt(0xC8);
    ConnectWithFakeHeap();
    const uint64_t lock = reinterpret_cast<uintptr_t>(&FakeHeap::lock);
    ExpectHeapsLock(lock, foundHeapLock + Hexadecimal(lock));
    EXPECT_EQ(0u, CountInLog(noHeapLock));
}

HOST_TEST_OF(LockDiscoveryHost, LockDiscovery, RegistersNoLockOfAHeapOfAnotherLayout)
{
    FakeHeap::PutLockAt(0xD0);
    ConnectWithFakeHeap();
    ExpectHeapsLock(0, noHeapLock);
}

HOST_TEST(LockDiscovery, NamesAPlaceInTheAgentThatJumpsToItself)
{
    Publish("agent", Library().Module());
    ConnectDefaultAgent();
}

HOST_TEST(LockDiscovery, NamesTheLockThatTheLoaderWorksUnder)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(WaitForLog("Found loader lock at 0x" + Hexadecimal(AwaitNumber("loader lock"))));
    {
        const LockedLoader locked;
        Publish("owner", uint64_t{GetCurrentThreadId()});
        EXPECT_TRUE(Await("looked"));
    }
    Signal("unlocked");
}

HOST_TEST(LockDiscovery, RegistersTheHeapsLockOrThatThereIsNone)
{
    ConnectDefaultAgent();
    const uint64_t lock = AwaitNumber("heap lock");
    EXPECT_EQ(reinterpret_cast<uintptr_t>(LockOfProcessHeap()), lock);
    EXPECT_EQ(lock != 0, HeapHeaderHasLock());
    const std::string outcome = lock != 0 ? foundHeapLock + Hexadecimal(lock) : noHeapLock;
    ExpectLogOrder({"Registering process with bridge", outcome, "Initialization done"});
    EXPECT_EQ(1u, CountInLog(outcome));
    for (const LogRecord& record : ReadLog())
    {
        if (record.message == outcome)
        {
            EXPECT_EQ(lock != 0 ? "DBG" : "ERR", record.tag);
        }
    }

    ASSERT_TRUE(HeapLock(GetProcessHeap()));
    Publish("owner", uint64_t{GetCurrentThreadId()});
    HeapUnlock(GetProcessHeap());
}

#else

BRIDGE_SCENARIO(LockDiscovery, RegistersTheHeapsLock)
{
    Publish("heap lock", process->processHeapLock);
}

namespace
{
struct Section32
{
    uint32_t debugInfo;
    int32_t lockCount;
    int32_t recursionCount;
    uint32_t owner;
    uint32_t semaphore;
    uint32_t spinCount;
};

Section32 ReadSection(const HostProcess& host, AddressSlot address)
{
    Section32 section = {};
    const std::vector<uint8_t> bytes = host.Read(address, sizeof(section));
    EXPECT_EQ(sizeof(section), bytes.size());
    memcpy(&section, bytes.data(), bytes.size());
    return section;
}
} // namespace

BRIDGE_SCENARIO(LockDiscovery, NamesAPlaceInTheAgentThatJumpsToItself)
{
    EXPECT_EQ(AwaitNumber("agent"), host.ImageAt(process->spinForever).base);
    EXPECT_EQ((std::vector<uint8_t>{0xEB, 0xFE}), host.Read(process->spinForever, 2));
    const uint32_t protection = host.QueryPages(process->spinForever).protection;
    EXPECT_NE(0u, protection &
                      (PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY))
        << protection;
}

BRIDGE_SCENARIO(LockDiscovery, NamesTheLockThatTheLoaderWorksUnder)
{
    ASSERT_NE(0u, process->loaderLock);
    Publish("loader lock", process->loaderLock);
    const uint64_t owner = AwaitNumber("owner");
    const Section32 locked = ReadSection(host, process->loaderLock);
    EXPECT_EQ(owner, locked.owner);
    EXPECT_EQ(1, locked.recursionCount);
    Signal("looked");
    ASSERT_TRUE(Await("unlocked"));
    EXPECT_NE(owner, ReadSection(host, process->loaderLock).owner);
}

BRIDGE_SCENARIO(LockDiscovery, RegistersTheHeapsLockOrThatThereIsNone)
{
    Publish("heap lock", process->processHeapLock);
    if (process->processHeapLock != 0)
    {
        EXPECT_EQ(sizeof(Section32), host.Read(process->processHeapLock, sizeof(Section32)).size());
    }
    AwaitNumber("owner"); // the search hasn't left the heap locked
}

#endif
