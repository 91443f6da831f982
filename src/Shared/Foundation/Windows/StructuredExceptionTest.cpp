#include "Shared/Foundation/Windows/StructuredException.h"

#include "tests/Support/TestThread.h"

#include <stdint.h>
#include <utility>
#include <vector>

namespace Torvane::Testing
{
namespace
{
constexpr DWORD ownCode = 0xE0001234;

/// The code by which the platform's C++ runtimes throw, with the number of words that they hand over.
constexpr DWORD cppException = 0xE06D7363;
constexpr DWORD cppParameters = 3;

DWORD caughtCode = 0;

LONG CALLBACK RememberCode(EXCEPTION_POINTERS* exception)
{
    caughtCode = exception->ExceptionRecord->ExceptionCode;
    return EXCEPTION_CONTINUE_SEARCH;
}

/// Sees each exception before a frame does.
class StructuredException : public testing::Test
{
protected:
    StructuredException()
        : handler(AddVectoredExceptionHandler(1, &RememberCode))
    {
        caughtCode = 0;
    }

    ~StructuredException() override
    {
        RemoveVectoredExceptionHandler(handler);
    }

private:
    void* handler;
};

void DoNothing(void*)
{
}

void CountUp(void* counter)
{
    ++*static_cast<int*>(counter);
}

void Read(void* address)
{
    (void)*static_cast<volatile int*>(address);
}

void Write(void* address)
{
    *static_cast<volatile int*>(address) = 1;
}

void CallTo(void* address)
{
    reinterpret_cast<void (*)()>(address)();
}

void DivideByZero(void*)
{
    __asm__ volatile("xorl %%edx, %%edx\n\t"
                     "movl $1, %%eax\n\t"
                     "xorl %%ecx, %%ecx\n\t"
                     "divl %%ecx"
                     :
                     :
                     : "eax", "ecx", "edx", "cc");
}

void ExecuteNoInstruction(void*)
{
    __asm__ volatile("ud2");
}

void ExecutePrivileged(void*)
{
    __asm__ volatile("hlt");
}

void StopInDebugger(void*)
{
    __asm__ volatile("int3");
}

void Raise(void* code)
{
    RaiseException(static_cast<DWORD>(reinterpret_cast<uintptr_t>(code)), 0, 0, nullptr);
}

void RaiseNoncontinuable(void* code)
{
    RaiseException(static_cast<DWORD>(reinterpret_cast<uintptr_t>(code)), EXCEPTION_NONCONTINUABLE, 0,
                   nullptr);
}

void ThrowAsCppDoes(void* object)
{
    const ULONG_PTR parameters[cppParameters] = {0x19930520, reinterpret_cast<ULONG_PTR>(object), 0};
    RaiseException(cppException, EXCEPTION_NONCONTINUABLE, cppParameters, parameters);
}

void* CodeArgument(DWORD code)
{
    return reinterpret_cast<void*>(static_cast<uintptr_t>(code));
}

/// Faults with everything in disorder that a callee may leave in disorder, and more.
void FaultWithScrambledRegisters(void*)
{
    __asm__ volatile("movl $0x11111111, %%ebx\n\t"
                     "movl $0x22222222, %%esi\n\t"
                     "movl $0x33333333, %%edi\n\t"
                     "std\n\t"
                     "pushl $1\n\t"
                     "pushl $2\n\t"
                     "ud2"
                     :
                     :
                     : "ebx", "esi", "edi", "memory");
}

/// Unmasks all exceptions of both floating-point units and divides by 0 in the older one, which raises that only at its
/// next instruction.
void LeaveAFloatingPointExceptionPending(void*)
{
    const uint16_t x87Control = 0x0F40;     // round towards zero
    const uint32_t sseControl = 0x00006000; // the same
    __asm__ volatile("fldcw %0\n\t"
                     "ldmxcsr %1\n\t"
                     "fld1\n\t"
                     "fldz\n\t"
                     "fdivrp"
                     :
                     : "m"(x87Control), "m"(sseControl));
}

void FaultWithAFloatingPointExceptionPending(void*)
{
    LeaveAFloatingPointExceptionPending(nullptr);
    ExecuteNoInstruction(nullptr);
}

void RaiseAFloatingPointException(void*)
{
    LeaveAFloatingPointExceptionPending(nullptr);
    __asm__ volatile("fwait");
}

struct FloatingPointControl
{
    uint16_t x87;
    uint16_t x87Status;
    uint32_t sse;
};

FloatingPointControl GetFloatingPointControl()
{
    FloatingPointControl control = {};
    __asm__ volatile("fnstcw %0\n\t"
                     "fnstsw %1\n\t"
                     "stmxcsr %2"
                     : "=m"(control.x87), "=m"(control.x87Status), "=m"(control.sse));
    return control;
}

struct Registers
{
    uint32_t ebx;
    uint32_t esi;
    uint32_t edi;
    uint32_t stackDifference;
    uint32_t flags;
};

/// Calls `RunInExceptionFrame` with known values in the registers that a callee keeps. \return them afterwards.
Registers CallWithKnownRegisters(void (*function)(void* context))
{
    Registers after = {};
    using Call = bool (*)(void (*)(void*), void*);
    struct
    {
        Call call;
        void (*function)(void* context);
        Registers* after;
    } block = {&RunInExceptionFrame, function, &after};
    void* address = &block;
    __asm__ volatile("pushl %%ebx\n\t"
                     "pushl %%esi\n\t"
                     "pushl %%edi\n\t"
                     "pushl %%eax\n\t"
                     "movl $0xB0B0B0B0, %%ebx\n\t"
                     "movl $0x51515151, %%esi\n\t"
                     "movl $0xD1D1D1D1, %%edi\n\t"
                     "pushl %%esp\n\t" // the stack before the call
                     "pushl $0\n\t"
                     "pushl 4(%%eax)\n\t"
                     "call *(%%eax)\n\t"
                     "addl $8, %%esp\n\t"
                     "popl %%ecx\n\t"
                     "subl %%esp, %%ecx\n\t"
                     "pushfl\n\t"
                     "popl %%edx\n\t"
                     "movl (%%esp), %%eax\n\t"
                     "movl 8(%%eax), %%eax\n\t"
                     "movl %%ebx, (%%eax)\n\t"
                     "movl %%esi, 4(%%eax)\n\t"
                     "movl %%edi, 8(%%eax)\n\t"
                     "movl %%ecx, 12(%%eax)\n\t"
                     "movl %%edx, 16(%%eax)\n\t"
                     "popl %%eax\n\t"
                     "popl %%edi\n\t"
                     "popl %%esi\n\t"
                     "popl %%ebx"
                     : "+a"(address)
                     :
                     : "ecx", "edx", "memory", "cc");
    return after;
}

/// Frames that a callee has of its own, by the published layout of the thread's list at fs:[0].
struct CalleesFrame
{
    CalleesFrame* next;
    EXCEPTION_DISPOSITION(__cdecl* handler)(EXCEPTION_RECORD*, void*, CONTEXT*, void*);
};

std::vector<DWORD> calleesFrameFlags;

EXCEPTION_DISPOSITION __cdecl DeclineAndRemember(EXCEPTION_RECORD* record, void*, CONTEXT*, void*)
{
    calleesFrameFlags.push_back(record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND));
    return ExceptionContinueSearch;
}

__attribute__((noinline)) void RaiseInFrameOfOwn(void*)
{
    volatile CalleesFrame frame = {reinterpret_cast<CalleesFrame*>(__readfsdword(0)), &DeclineAndRemember};
    __writefsdword(0, reinterpret_cast<DWORD>(&frame));
    RaiseException(ownCode, 0, 0, nullptr);
    __writefsdword(0, reinterpret_cast<DWORD>(frame.next));
}

/// Runs an inner frame, and may fault after it.
struct Nesting
{
    void (*inside)(void* context);
    void* context;
    bool faultsAfter;
    bool innerReturned;
    bool reachedEnd;
};

void RunInner(void* context)
{
    auto* nesting = static_cast<Nesting*>(context);
    nesting->innerReturned = RunInExceptionFrame(nesting->inside, nesting->context);
    nesting->reachedEnd = true;
    if (nesting->faultsAfter)
    {
        DivideByZero(nullptr);
    }
}

void Descend(void* depth)
{
    const auto levels = reinterpret_cast<uintptr_t>(depth);
    if (levels == 0)
    {
        ExecuteNoInstruction(nullptr);
    }
    EXPECT_EQ(RunInExceptionFrame(&Descend, reinterpret_cast<void*>(levels - 1)), levels != 1);
}
} // namespace

TEST_F(StructuredException, RunsAFunctionThatReturns)
{
    int counter = 0;
    EXPECT_TRUE(RunInExceptionFrame(&CountUp, &counter));
    EXPECT_EQ(counter, 1);
    EXPECT_EQ(caughtCode, 0u);
}

TEST_F(StructuredException, LeavesTheFloatingPointUnitsAsTheyWere)
{
    const uint16_t shortPrecision = 0x007F;
    __asm__ volatile("fninit\n\t"
                     "fldcw %0"
                     :
                     : "m"(shortPrecision));
    const FloatingPointControl before = GetFloatingPointControl();
    for (const auto& [function, returns] : {std::pair{&LeaveAFloatingPointExceptionPending, true},
                                            {&FaultWithAFloatingPointExceptionPending, false},
                                            {&RaiseAFloatingPointException, false}})
    {
        EXPECT_EQ(RunInExceptionFrame(function, nullptr), returns);
        const FloatingPointControl after = GetFloatingPointControl();
        EXPECT_EQ(after.x87, before.x87);
        EXPECT_EQ(after.x87Status, 0u);
        EXPECT_EQ(after.sse, before.sse);
        __asm__ volatile("fwait");
    }
    __asm__ volatile("fninit");
}

TEST_F(StructuredException, CatchesAccessViolations)
{
    void* page = VirtualAlloc(nullptr, 1, MEM_RESERVE | MEM_COMMIT, PAGE_READONLY);
    for (const auto& [function, address] : {std::pair{&Read, static_cast<void*>(nullptr)},
                                            {&Write, nullptr},
                                            {&CallTo, nullptr},
                                            {&Write, page}})
    {
        caughtCode = 0;
        EXPECT_FALSE(RunInExceptionFrame(function, address));
        EXPECT_EQ(caughtCode, DWORD{EXCEPTION_ACCESS_VIOLATION});
    }
    EXPECT_TRUE(RunInExceptionFrame(&Read, page));
    VirtualFree(page, 0, MEM_RELEASE);
}

TEST_F(StructuredException, CatchesADivisionByZero)
{
    EXPECT_FALSE(RunInExceptionFrame(&DivideByZero, nullptr));
    EXPECT_EQ(caughtCode, DWORD{EXCEPTION_INT_DIVIDE_BY_ZERO});
}

TEST_F(StructuredException, CatchesInstructionsThatCannotBeExecuted)
{
    EXPECT_FALSE(RunInExceptionFrame(&ExecuteNoInstruction, nullptr));
    EXPECT_EQ(caughtCode, DWORD{EXCEPTION_ILLEGAL_INSTRUCTION});
    EXPECT_FALSE(RunInExceptionFrame(&ExecutePrivileged, nullptr));
    EXPECT_EQ(caughtCode, DWORD{EXCEPTION_PRIV_INSTRUCTION});
    EXPECT_FALSE(RunInExceptionFrame(&StopInDebugger, nullptr));
    EXPECT_EQ(caughtCode, DWORD{EXCEPTION_BREAKPOINT});
}

TEST_F(StructuredException, CatchesRaisedExceptions)
{
    for (const DWORD code : {ownCode, DWORD{0x406D1388}, DWORD{1}, DWORD{EXCEPTION_STACK_OVERFLOW}})
    {
        EXPECT_FALSE(RunInExceptionFrame(&Raise, CodeArgument(code)));
        EXPECT_EQ(caughtCode, code);
        EXPECT_FALSE(RunInExceptionFrame(&RaiseNoncontinuable, CodeArgument(code)));
    }
}

TEST_F(StructuredException, CatchesTheExceptionsOfCppRuntimes)
{
    int object = 0;
    EXPECT_FALSE(RunInExceptionFrame(&ThrowAsCppDoes, &object));
    EXPECT_EQ(caughtCode, cppException);
}

TEST_F(StructuredException, LeavesTheListOfFramesAsItWas)
{
    const DWORD before = __readfsdword(0);
    EXPECT_TRUE(RunInExceptionFrame(&DoNothing, nullptr));
    EXPECT_EQ(__readfsdword(0), before);
    EXPECT_FALSE(RunInExceptionFrame(&Raise, CodeArgument(ownCode)));
    EXPECT_EQ(__readfsdword(0), before);
    EXPECT_FALSE(RunInExceptionFrame(&RaiseInFrameOfOwn, nullptr));
    EXPECT_EQ(__readfsdword(0), before);
}

TEST_F(StructuredException, AsksAndThenUnwindsTheFramesInside)
{
    calleesFrameFlags.clear();
    EXPECT_FALSE(RunInExceptionFrame(&RaiseInFrameOfOwn, nullptr));
    EXPECT_EQ(calleesFrameFlags, std::vector<DWORD>({0, EXCEPTION_UNWINDING}));
}

TEST_F(StructuredException, KeepsTheCallersRegistersAndStack)
{
    for (void (*function)(void*) : {&DoNothing, &FaultWithScrambledRegisters, &RaiseInFrameOfOwn})
    {
        const Registers after = CallWithKnownRegisters(function);
        EXPECT_EQ(after.ebx, 0xB0B0B0B0u);
        EXPECT_EQ(after.esi, 0x51515151u);
        EXPECT_EQ(after.edi, 0xD1D1D1D1u);
        EXPECT_EQ(after.stackDifference, 0u);
        EXPECT_EQ(after.flags & 0x400, 0u) << "the direction flag";
    }
}

TEST_F(StructuredException, IsTheInnermostFramesAlone)
{
    Nesting nesting = {&Raise, CodeArgument(ownCode), false, true, false};
    EXPECT_TRUE(RunInExceptionFrame(&RunInner, &nesting));
    EXPECT_FALSE(nesting.innerReturned);
    EXPECT_TRUE(nesting.reachedEnd);
}

TEST_F(StructuredException, ReachesTheOuterFrameAfterTheInnerOne)
{
    Nesting nesting = {&DoNothing, nullptr, true, false, false};
    EXPECT_FALSE(RunInExceptionFrame(&RunInner, &nesting));
    EXPECT_TRUE(nesting.innerReturned);
    EXPECT_EQ(caughtCode, DWORD{EXCEPTION_INT_DIVIDE_BY_ZERO});

    nesting = {&ExecuteNoInstruction, nullptr, true, true, false};
    EXPECT_FALSE(RunInExceptionFrame(&RunInner, &nesting));
    EXPECT_FALSE(nesting.innerReturned);
    EXPECT_TRUE(nesting.reachedEnd);
}

TEST_F(StructuredException, NestsDeeply)
{
    const DWORD before = __readfsdword(0);
    EXPECT_TRUE(RunInExceptionFrame(&Descend, reinterpret_cast<void*>(uintptr_t{100})));
    EXPECT_EQ(__readfsdword(0), before);
}

TEST_F(StructuredException, CatchesAThousandInARow)
{
    for (int i = 0; i < 1000; ++i)
    {
        ASSERT_FALSE(RunInExceptionFrame(i % 2 == 0 ? &DivideByZero : &RaiseInFrameOfOwn, nullptr)) << i;
    }
}

TEST_F(StructuredException, IsEachThreadsOwn)
{
    const auto faultOften = [] {
        for (int i = 0; i < 200; ++i)
        {
            EXPECT_FALSE(RunInExceptionFrame(&Write, nullptr));
            EXPECT_TRUE(RunInExceptionFrame(&DoNothing, nullptr));
        }
    };
    const TestThread first(faultOften);
    const TestThread second(faultOften);
    faultOften();
}
} // namespace Torvane::Testing
