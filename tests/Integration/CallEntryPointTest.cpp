#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

#if TORVANE_HOST_HALF
#include "tests/Support/FaultCatcher.h"
#include "tests/Support/Modules.h"
#include "tests/Support/TemporaryFolder.h"
#include "tests/Support/TestThread.h"
#else
#include "tests/Support/Integration/PatchBridge.h"
#endif

// CallEntryPoint: how the entry point is called, which code is there before and after, and what faults lead to.

namespace
{
constexpr uint64_t bytesAfter = 0x161514131211; // 11 12 13 14 15 16
} // namespace

#if TORVANE_HOST_HALF

namespace
{
constexpr uint32_t pageSize = 4096;
constexpr char lineOfException[] = "Exception thrown while calling the patch entry point";

/// Code of the host's own, in place of an image: two pages of int3 that can be read and executed.
struct EntryPage
{
    uint8_t* base =
        static_cast<uint8_t*>(VirtualAlloc(nullptr, 2 * pageSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    uint8_t* entry;

    explicit EntryPage(uint32_t offset = 0x120, DWORD protection = PAGE_EXECUTE_READ)
        : entry(base + offset)
    {
        memset(base, 0xCC, 2 * pageSize);
        DWORD before = 0;
        VirtualProtect(base, 2 * pageSize, protection, &before);
    }

    /// The six bytes at the entry point, as a number.
    uint64_t Bytes() const
    {
        uint64_t bytes = 0;
        memcpy(&bytes, entry, 6);
        return bytes;
    }

    /// E9 rel32 `jmp`, 90 `nop`.
    uint64_t BytesOfJump(void (*target)()) const
    {
        const uint32_t distance =
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(reinterpret_cast<void*>(target)) -
                                  (reinterpret_cast<uintptr_t>(entry) + 5));
        return uint64_t(0xE9) | uint64_t(distance) << 8 | uint64_t(0x90) << 40;
    }

    /// That all around the entry point is untouched.
    bool IsIntactAround() const
    {
        for (const uint8_t* byte = base; byte < base + 2 * pageSize; ++byte)
        {
            if (*byte != 0xCC && (byte < entry || byte >= entry + 6))
            {
                return false;
            }
        }
        return true;
    }
};

/// One call of the entry point.
struct EntryCall
{
    DWORD threadId;
    uint32_t stackPointer; ///< where the return address is
    uint32_t base;
    uint32_t reason;
    uint32_t reserved;
    uint64_t bytes; ///< at the entry point during the call
    DWORD protection;
};

EntryPage* page;
void (*entryBody)(); // what the entry point does once the call is recorded; may be null
uint32_t entryResult;

/// In order; added to by the Agent's receiver thread, read when the Bridge half has signalled that the Agent has executed the calls.
std::vector<EntryCall> entryCalls;

void __cdecl RecordEntry(const uint32_t* stack)
{
    EntryCall call = {};
    call.threadId = GetCurrentThreadId();
    call.stackPointer = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(stack));
    call.base = stack[1];
    call.reason = stack[2];
    call.reserved = stack[3];
    call.bytes = page->Bytes();
    call.protection = QueryMemory(page->entry).Protect;
    entryCalls.push_back(call);
    if (entryBody != nullptr)
    {
        entryBody();
    }
}

/// Takes its three arguments off the stack, as an entry point does.
__attribute__((naked)) void RecordingEntry()
{
    asm volatile("pushal\n\t"
                 "leal 32(%%esp), %%eax\n\t"
                 "pushl %%eax\n\t"
                 "calll %P[record]\n\t"
                 "addl $4, %%esp\n\t"
                 "popal\n\t"
                 "movl %[result], %%eax\n\t"
                 "retl $12"
                 :
                 : [record] "i"(&RecordEntry), [result] "m"(entryResult));
}

class EntryPointHost : public HostTest
{
protected:
    /// Makes the page known to the Bridge half and starts the Agent.
    void Start(EntryPage& entryPage)
    {
        page = &entryPage;
        Publish("base", entryPage.base);
        Publish("offset", uint64_t(entryPage.entry - entryPage.base));
        Publish("bytes", entryPage.BytesOfJump(RecordingEntry));
        ConnectDefaultAgent();
    }

    void ExpectLeftInOrder(const EntryPage& entryPage, DWORD protection = PAGE_EXECUTE_READ)
    {
        EXPECT_EQ(bytesAfter, entryPage.Bytes());
        EXPECT_TRUE(entryPage.IsIntactAround());
        EXPECT_EQ(protection, QueryMemory(entryPage.base).Protect);
        EXPECT_EQ(protection, QueryMemory(entryPage.base + pageSize).Protect);
    }

    /// Has the entry point end in an exception, between two calls that end as they should.
    void ExpectExceptionIsTaken(void (*body)())
    {
        UseScenario("CallEntryPoint.TakesAnExceptionBetweenTwoCalls");
        EntryPage entryPage;
        Start(entryPage);
        EXPECT_TRUE(Await("first"));
        ExpectNoErrorsInLog();
        entryBody = body;
        Signal("second");
        EXPECT_TRUE(Await("taken"));
        ExpectLeftInOrder(entryPage);
        EXPECT_EQ(1u, CountInLog(lineOfException));
        EXPECT_EQ(1u, CountErrors());
        entryBody = nullptr;
        Signal("third");
        EXPECT_TRUE(Await("checked"));
        ExpectLeftInOrder(entryPage);
        EXPECT_EQ(1u, CountInLog(lineOfException));
        ASSERT_EQ(3u, entryCalls.size());
        EXPECT_EQ(entryCalls[0].stackPointer, entryCalls[1].stackPointer);
        EXPECT_EQ(entryCalls[0].stackPointer, entryCalls[2].stackPointer);
    }

    size_t CountErrors() const
    {
        size_t count = 0;
        for (const LogRecord& record : WithoutHeapSearch(ReadLog()))
        {
            count += record.tag == "ERR" || record.tag == "PNC";
        }
        return count;
    }
};

/// Calls itself through to the instruction, so that there are frames between it and the entry point.
__attribute__((noinline)) void WriteDeepDown(int depth)
{
    volatile int local = depth;
    if (depth == 0)
    {
        *reinterpret_cast<volatile int*>(static_cast<uintptr_t>(16)) = local;
    }
    else
    {
        WriteDeepDown(depth - 1);
    }
    local = 0;
}
} // namespace

#define ENTRY_POINT_TEST(Name) HOST_TEST_OF(EntryPointHost, CallEntryPoint, Name)

ENTRY_POINT_TEST(CallsItAsTheEntryPointOfALibrary)
{
    EntryPage entryPage;
    Start(entryPage);
    for (const uint32_t result : {1u, 0u, 0xFFFFFFFFu})
    {
        ASSERT_TRUE(Await("ready for " + std::to_string(entryCalls.size())));
        entryResult = result;
        const std::string number = std::to_string(entryCalls.size());
        Signal("call " + number);
        EXPECT_TRUE(Await("called " + number));
    }
    ASSERT_EQ(3u, entryCalls.size());
    for (const EntryCall& call : entryCalls)
    {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(entryPage.base), call.base);
        EXPECT_EQ(DWORD(DLL_PROCESS_ATTACH), call.reason);
        EXPECT_EQ(0u, call.reserved);
        EXPECT_EQ(AwaitNumber("receiver thread"), call.threadId);
        EXPECT_EQ(entryCalls[0].stackPointer, call.stackPointer) << "It takes its arguments off the stack.";
    }
    EXPECT_EQ(3u, CountInLog("Processing Blob::CallEntryPoint"));
    ExpectNoErrorsInLog();
}

ENTRY_POINT_TEST(PutsBytesThereForTheCallAndOthersFromThenOn)
{
    EntryPage entryPage;
    Start(entryPage);
    EXPECT_TRUE(Await("checked"));
    ASSERT_EQ(1u, entryCalls.size());
    EXPECT_EQ(entryPage.BytesOfJump(RecordingEntry), entryCalls[0].bytes);
    EXPECT_EQ(DWORD(PAGE_EXECUTE_READ), entryCalls[0].protection)
        << "The code can't be written during the call.";
    ExpectLeftInOrder(entryPage);
}

ENTRY_POINT_TEST(LeavesWritableCodeWritable)
{
    UseScenario("CallEntryPoint.PutsBytesThereForTheCallAndOthersFromThenOn");
    EntryPage entryPage(0, PAGE_EXECUTE_READWRITE);
    Start(entryPage);
    EXPECT_TRUE(Await("checked"));
    ASSERT_EQ(1u, entryCalls.size());
    EXPECT_EQ(DWORD(PAGE_EXECUTE_READWRITE), entryCalls[0].protection);
    ExpectLeftInOrder(entryPage, PAGE_EXECUTE_READWRITE);
}

ENTRY_POINT_TEST(PutsBytesAcrossTheEndOfAPage)
{
    UseScenario("CallEntryPoint.PutsBytesThereForTheCallAndOthersFromThenOn");
    EntryPage entryPage(pageSize - 3);
    Start(entryPage);
    EXPECT_TRUE(Await("checked"));
    ASSERT_EQ(1u, entryCalls.size());
    ExpectLeftInOrder(entryPage);
}

ENTRY_POINT_TEST(IgnoresTheUpperHalfOfTheBase)
{
    EntryPage entryPage;
    Start(entryPage);
    EXPECT_TRUE(Await("checked"));
    ASSERT_EQ(1u, entryCalls.size());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(entryPage.base), entryCalls[0].base);
    ExpectLeftInOrder(entryPage);
}

ENTRY_POINT_TEST(CallsItOutsideTheLoader)
{
    static bool ended = false;
    UseScenario("CallEntryPoint.PutsBytesThereForTheCallAndOthersFromThenOn");
    EntryPage entryPage;
    entryBody = [] {
        // In the loader no new thread would come to its first instruction.
        const TestThread thread([] { GetModuleHandleW(L"kernel32.dll"); });
        ended = thread.WaitForEnd(testTimeout);
    };
    Start(entryPage);
    EXPECT_TRUE(Await("checked"));
    EXPECT_TRUE(ended);
    ExpectNoErrorsInLog();
}

ENTRY_POINT_TEST(TakesAnAccessViolation)
{
    ExpectExceptionIsTaken([] { *reinterpret_cast<volatile int*>(static_cast<uintptr_t>(16)) = 1; });
}

ENTRY_POINT_TEST(TakesAnAccessViolationDeepInItsCalls)
{
    ExpectExceptionIsTaken([] { WriteDeepDown(50); });
}

ENTRY_POINT_TEST(TakesAJumpToNowhere)
{
    ExpectExceptionIsTaken([] {
        using Function = void (*)();
        volatile uintptr_t nowhere = 16;
        reinterpret_cast<Function>(nowhere)();
    });
}

ENTRY_POINT_TEST(TakesADivisionByZero)
{
    ExpectExceptionIsTaken([] {
        asm volatile("movl $1, %%eax\n\t"
                     "cltd\n\t"
                     "xorl %%ecx, %%ecx\n\t"
                     "idivl %%ecx" ::
                         : "eax", "ecx", "edx");
    });
}

ENTRY_POINT_TEST(TakesAnIllegalInstruction)
{
    ExpectExceptionIsTaken([] { asm volatile("ud2"); });
}

ENTRY_POINT_TEST(TakesAFaultWithAFloatingPointExceptionPending)
{
    ExpectExceptionIsTaken([] {
        const uint16_t nothingMasked = 0x0340;
        asm volatile("fldcw %0\n\t"
                     "fld1\n\t"
                     "fldz\n\t"
                     "fdivrp\n\t"
                     "ud2" ::"m"(nothingMasked));
    });
}

ENTRY_POINT_TEST(TakesABreakpoint)
{
    ExpectExceptionIsTaken([] { asm volatile("int3"); });
}

ENTRY_POINT_TEST(TakesWhatIsThrown)
{
    ExpectExceptionIsTaken([] {
        constexpr DWORD thrown = 0xE06D7363; // as language runtimes throw
        const ULONG_PTR arguments[] = {0x19930520, 0, 0};
        RaiseException(thrown, EXCEPTION_NONCONTINUABLE, 3, arguments);
    });
}

ENTRY_POINT_TEST(TakesAContinuableException)
{
    ExpectExceptionIsTaken([] { RaiseException(0xE0001234, 0, 0, nullptr); });
}

ENTRY_POINT_TEST(DoesNotSeeAnExceptionThatOthersHandle)
{
    static uint8_t* guarded =
        static_cast<uint8_t*>(VirtualAlloc(nullptr, pageSize, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS));
    UseScenario("CallEntryPoint.PutsBytesThereForTheCallAndOthersFromThenOn");
    const FaultCatcher catcher(guarded, pageSize, FaultCatcher::MakeWritable);
    EntryPage entryPage;
    entryBody = [] {
        guarded[3] = 33;
    };
    Start(entryPage);
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(1u, catcher.Caught().count);
    EXPECT_EQ(33, guarded[3]);
    ExpectLeftInOrder(entryPage);
    ExpectNoErrorsInLog();
}

namespace
{
/// As the image EntryPoint has it.
struct ImageEntryCall
{
    uint32_t count;
    uint32_t stackPointer;
    uint32_t base;
    uint32_t reason;
    uint32_t reserved;
};
} // namespace

HOST_TEST(CallEntryPoint, CallsThatOfAPatchOnceWhateverTheLoaderDoes)
{
    const TemporaryFolder folder(L"entry point");
    PublishText("linked", ImagePath(L"EntryPoint"));
    PublishText("path", folder / L"patch.dll");
    StartDefaultAgent();
    EXPECT_TRUE(Await("loaded"));
    const HMODULE module = GetModuleHandleW(L"patch.dll");
    ASSERT_NE(nullptr, module);
    const volatile ImageEntryCall& call = *FindExport<ImageEntryCall*>(module, "entryPointCall");
    EXPECT_EQ(0u, call.count) << "The loader has called the idle entry point.";
    Signal("call");

    EXPECT_TRUE(Await("called"));
    EXPECT_EQ(1u, call.count);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(module), call.base);
    EXPECT_EQ(DWORD(DLL_PROCESS_ATTACH), call.reason);
    EXPECT_EQ(0u, call.reserved);
    const uint32_t stackPointer = call.stackPointer;
    {
        const TestThread thread([] {}); // the loader notifies each library of it
    }
    EXPECT_EQ(1u, call.count) << "The loader calls the idle entry point.";
    Signal("call again");

    EXPECT_TRUE(Await("called again"));
    EXPECT_EQ(2u, call.count);
    EXPECT_EQ(stackPointer, call.stackPointer);
    Signal("unload");
    EXPECT_TRUE(Await("checked"));
    EXPECT_FALSE(IsModule(module));
    ExpectNoErrorsInLog();
}

#else

namespace
{
EntryPointCode Code(uint64_t bytes)
{
    EntryPointCode code = {};
    memcpy(code.bytes, &bytes, sizeof(code.bytes));
    return code;
}

class EntryPointBridge : public PatchBridge
{
protected:
    void Call(AddressSlot upperHalf = 0)
    {
        ASSERT_TRUE(SendCallEntryPoint(link, AwaitNumber("base") | upperHalf, AwaitNumber("offset"),
                                       Code(AwaitNumber("bytes")), Code(bytesAfter)));
        ExpectNoReply();
    }
};
} // namespace

#define ENTRY_POINT_BRIDGE(Name) BRIDGE_SCENARIO_OF(EntryPointBridge, CallEntryPoint, Name)

ENTRY_POINT_BRIDGE(CallsItAsTheEntryPointOfALibrary)
{
    Publish("receiver thread", process->receiverThreadId);
    for (const char* number : {"0", "1", "2"})
    {
        Signal(std::string("ready for ") + number);
        ASSERT_TRUE(Await(std::string("call ") + number));
        Call();
        Signal(std::string("called ") + number);
    }
}

ENTRY_POINT_BRIDGE(PutsBytesThereForTheCallAndOthersFromThenOn)
{
    Call();
}

ENTRY_POINT_BRIDGE(IgnoresTheUpperHalfOfTheBase)
{
    Call(0x1234567800000000);
}

ENTRY_POINT_BRIDGE(TakesAnExceptionBetweenTwoCalls)
{
    Call();
    Signal("first");
    ASSERT_TRUE(Await("second"));
    Call();
    Signal("taken");
    ASSERT_TRUE(Await("third"));
    Call();
}

ENTRY_POINT_BRIDGE(CallsThatOfAPatchOnceWhateverTheLoaderDoes)
{
    PatchImage image(AwaitText("linked"));
    ASSERT_EQ("", image.Error());
    const EntryPointCode code = image.EntryCode();
    ASSERT_TRUE(image.MakeEntryPointIdle()) << image.Error();
    ASSERT_TRUE(image.Save(AwaitText("path"))) << image.Error();
    const auto loaded = Load(AwaitText("path"));
    ASSERT_TRUE(loaded);
    Signal("loaded");
    const std::vector<uint8_t> idle(idleEntryPoint.bytes,
                                    idleEntryPoint.bytes + sizeof(idleEntryPoint.bytes));
    for (const std::string word : {"", " again"})
    {
        ASSERT_TRUE(Await("call" + word));
        ASSERT_TRUE(SendCallEntryPoint(link, loaded->base, image.EntryPoint(), code, idleEntryPoint));
        ASSERT_TRUE(Fence());
        EXPECT_EQ(idle, host.Read(loaded->base + image.EntryPoint(), idle.size()));
        Signal("called" + word);
    }
    ASSERT_TRUE(Await("unload"));
    ASSERT_TRUE(SendUnloadPatch(link, loaded->base));
    ASSERT_TRUE(Fence());
}

#endif
