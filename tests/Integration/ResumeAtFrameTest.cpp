#include "tests/Support/Integration/IntegrationTest.h"

#include <iterator>
#include <stdio.h>
#include <string>
#include <vector>

#include <windows.h>

// A thread that faulted is taken back to a function further out on its stack, whose frame is unwound for it.
//
// The host's functions are in assembly, since no compiler knows of the places where a thread continues. Each of ten
// levels registers an exception frame that notes when it is unwound, and calls the next one inside; the innermost
// faults. Around them is the base, where most tests continue, and which checks the state there.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
constexpr uint32_t levelCount = 10;
constexpr uint32_t repetitions = 1000;

/// Where on the stack each level can continue. Level 0 is the innermost.
struct Levels
{
    uint32_t stackPointers[levelCount];
    uint32_t framePointers[levelCount];
    uint32_t baseStackPointer;
    uint32_t baseFramePointer;
};
} // namespace

#if TORVANE_HOST_HALF

extern "C"
{
/// What the base finds where it continues.
struct Landing
{
    uint32_t general
        [8]; ///< in the order of PUSHAD, from the lowest address: edi, esi, ebp, esp, ebx, edx, ecx, eax
    uint32_t flags;
    const void* topFrame; ///< the head of the list of exception frames
    DWORD lastError;
};

Levels levels;
Landing landing;
const void* frameOfLevel[levelCount]; ///< the levels' exception frames
uint32_t askedCount;                  ///< how many frames were asked to handle an exception
uint32_t unwoundCount;                ///< how many were unwound,
uint32_t unwoundLevels[levelCount];   ///< and the first ones of them, in this order

const void* badPointer; ///< if not null, the innermost level calls it; otherwise it reads what isn't there

/// Goes in by that many levels, and returns when it is resumed at `landing`.
void GoIn(uint32_t count);
extern const uint8_t baseLanding[];
extern const uint8_t levelLanding[];

EXCEPTION_DISPOSITION __cdecl NoteUnwinding(EXCEPTION_RECORD* record, uint32_t* frame, CONTEXT*, void*)
{
    if ((record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) == 0)
    {
        ++askedCount;
    }
    else
    {
        if (unwoundCount < levelCount)
        {
            unwoundLevels[unwoundCount] = frame[2];
        }
        ++unwoundCount;
    }
    return ExceptionContinueSearch;
}
}

asm(R"(
    .globl _GoIn, _baseLanding, _levelLanding
    .p2align 4
_GoIn:
    pushl %ebp
    movl %esp, %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    pushl %fs:0
    movl %esp, _levels + 80
    movl %ebp, _levels + 84
    movl 8(%ebp), %eax
    decl %eax
    pushl %eax
    calll _Level
    ud2
_baseLanding:
    movl %edi, _landing
    movl %esi, _landing + 4
    movl %ebp, _landing + 8
    movl %esp, _landing + 12
    movl %ebx, _landing + 16
    movl %edx, _landing + 20
    movl %ecx, _landing + 24
    movl %eax, _landing + 28
    pushfl
    popl _landing + 32
    movl %fs:0, %eax
    movl %eax, _landing + 36
    movl %fs:0x34, %eax
    movl %eax, _landing + 40
    cld
    movl _levels + 80, %esp
    movl _levels + 84, %ebp
    popl %fs:0
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    ret

_Level:
    pushl %ebp
    movl %esp, %ebp
    movl 8(%ebp), %eax
    pushl %eax
    pushl $_NoteUnwinding
    pushl %fs:0
    movl %esp, %fs:0
    movl %esp, _levels(,%eax,4)
    movl %ebp, _levels + 40(,%eax,4)
    movl %esp, _frameOfLevel(,%eax,4)
    testl %eax, %eax
    jz fault
    decl %eax
    pushl %eax
    calll _Level
    ud2
_levelLanding:
fault:
    movl $0x11111111, %eax
    movl $0x22222222, %ecx
    movl $0x33333333, %edx
    movl $0x44444444, %ebx
    movl $0x66666666, %esi
    movl $0x77777777, %edi
    cmpl $0, _badPointer
    std
    jne callBadPointer
    movl 0x70, %eax
    ud2
callBadPointer:
    calll *_badPointer
    ud2
)");
static_assert(offsetof(Levels, framePointers) == 40 && offsetof(Levels, baseStackPointer) == 80);
static_assert(offsetof(Landing, flags) == 32 && offsetof(Landing, topFrame) == 36);

namespace
{
LONG NTAPI RefuseToContinue(CONTEXT*, BOOLEAN)
{
    return static_cast<LONG>(0xC000000D);
}

FARPROC WINAPI GetRefusingProcAddress(HMODULE module, const char* name)
{
    return std::string(name) == "NtContinue" ? reinterpret_cast<FARPROC>(&RefuseToContinue)
                                             : GetProcAddress(module, name);
}

class ResumeAtFrameHost : public ExceptionHost
{
protected:
    bool StartWithPlaces()
    {
        Publish("levels", &levels);
        Publish("base landing", baseLanding);
        Publish("level landing", levelLanding);
        return Start();
    }

    /// Everything but the two pointers is as the levels left it at the fault.
    static void ExpectRegistersOfTheFault()
    {
        EXPECT_EQ(0x11111111u, landing.general[7]) << "eax";
        EXPECT_EQ(0x22222222u, landing.general[6]) << "ecx";
        EXPECT_EQ(0x33333333u, landing.general[5]) << "edx";
        EXPECT_EQ(0x44444444u, landing.general[4]) << "ebx";
        EXPECT_EQ(0x66666666u, landing.general[1]) << "esi";
        EXPECT_EQ(0x77777777u, landing.general[0]) << "edi";
        EXPECT_EQ(levels.baseStackPointer, landing.general[3]);
        EXPECT_EQ(levels.baseFramePointer, landing.general[2]);
        EXPECT_EQ(0x400u, landing.flags & 0x400) << "direction";
    }

    /// Goes in by `count` levels, a thousand times, each time resumed at the base.
    void GoInRepeatedly(uint32_t count)
    {
        const void* top = nullptr;
        __asm__ volatile("movl %%fs:0, %0" : "=r"(top));
        const void* stackLimit = nullptr;
        uint32_t stackPointer = 0;
        for (uint32_t i = 0; i < repetitions; ++i)
        {
            unwoundCount = 0;
            SetLastError(i + 1);
            GoIn(count);
            ASSERT_EQ(i + 1, landing.lastError);
            ASSERT_EQ(1u, unwoundCount) << "after " << i;
            ASSERT_EQ(0u, unwoundLevels[0]);
            ASSERT_EQ(count == 1 ? top : frameOfLevel[1], landing.topFrame);
            ExpectRegistersOfTheFault();
            const auto* block = reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
            if (i == 0)
            {
                stackLimit = block->StackLimit;
                stackPointer = landing.general[3];
            }
            ASSERT_EQ(stackPointer, landing.general[3]) << "after " << i;
            ASSERT_EQ(stackLimit, block->StackLimit) << "after " << i;
        }
        EXPECT_EQ(0u, askedCount);
        EXPECT_EQ(repetitions, CountInLog("Received exception handler action 3"));
    }
};
} // namespace

HOST_TEST_OF(ResumeAtFrameHost, ResumeAtFrame, UnwindsTheOneFrameOfOneLevel)
{
    ASSERT_TRUE(StartWithPlaces());
    GoInRepeatedly(1);
}

HOST_TEST_OF(ResumeAtFrameHost, ResumeAtFrame, UnwindsOnlyTheInnermostOfTenLevels)
{
    ASSERT_TRUE(StartWithPlaces());
    GoInRepeatedly(levelCount);
}

HOST_TEST_OF(ResumeAtFrameHost, ResumeAtFrame, GoesOutLevelByLevel)
{
    ASSERT_TRUE(StartWithPlaces());
    const void* top = nullptr;
    __asm__ volatile("movl %%fs:0, %0" : "=r"(top));
    GoIn(levelCount);
    ASSERT_EQ(levelCount, unwoundCount);
    for (uint32_t i = 0; i < levelCount; ++i)
    {
        EXPECT_EQ(i, unwoundLevels[i]);
    }
    EXPECT_EQ(0u, askedCount);
    EXPECT_EQ(top, landing.topFrame);
    ExpectRegistersOfTheFault();
    EXPECT_EQ(levelCount, CountInLog("Received exception handler action 3"));
}

HOST_TEST_OF(ResumeAtFrameHost, ResumeAtFrame, LeadsOutOfACallThroughABadPointer)
{
    ASSERT_TRUE(StartWithPlaces());
    badPointer = reinterpret_cast<const void*>(0x1234);
    GoIn(1);
    EXPECT_EQ(1u, unwoundCount);
    ExpectRegistersOfTheFault();
    ExpectLogOrder(
        {"Information: The thread caused a user-mode data execution prevention (DEP) violation at virtual "
         "address 0x00001234"});
}

HOST_TEST_OF(ResumeAtFrameHost, ResumeAtFrame, ContinuesByTheHandlersResultIfTheOSRefusesTo)
{
    ReplaceImport("GetProcAddress", &GetRefusingProcAddress);
    ASSERT_TRUE(StartWithPlaces());
    SetLastError(4711);
    GoIn(2);
    EXPECT_EQ(4711u, landing.lastError);
    EXPECT_EQ(1u, unwoundCount);
    EXPECT_EQ(0u, askedCount);
    EXPECT_EQ(frameOfLevel[1], landing.topFrame);
    ExpectRegistersOfTheFault();
    ExpectLogOrder(
        {"Received exception handler action 3", "Call to function NtContinue failed. Error: 0xC000000D"});
    EXPECT_EQ(1u, CountInLog("Call to function NtContinue failed. Error: 0xC000000D"));
}

#else

namespace
{
class ResumeAtFrameBridge : public ExceptionBridge
{
protected:
    /// Only the lower halves of the words count.
    static ResumeRecord At(uint64_t instructionPointer, uint64_t stackPointer, uint64_t framePointer)
    {
        constexpr uint64_t upperHalf = 0xABCDEF0100000000;
        return {instructionPointer | upperHalf, stackPointer | upperHalf, framePointer | upperHalf};
    }

    Levels ReadLevels()
    {
        Levels levels = {};
        const std::vector<uint8_t> bytes = host.Read(AwaitNumber("levels"), sizeof(levels));
        EXPECT_EQ(sizeof(levels), bytes.size());
        memcpy(&levels, bytes.data(), bytes.size());
        return levels;
    }

    /// Answers one report: the thread continues at the base.
    void ResumeAtBase()
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        const Levels levels = ReadLevels();
        Answer(report, ActionResumeAtFrame,
               At(AwaitNumber("base landing"), levels.baseStackPointer, levels.baseFramePointer));
    }

    void ResumeAtBaseRepeatedly()
    {
        for (uint32_t i = 0; i < repetitions && !HasFatalFailure(); ++i)
        {
            ResumeAtBase();
        }
        EXPECT_TRUE(NothingElseCame());
    }
};
} // namespace

BRIDGE_SCENARIO_OF(ResumeAtFrameBridge, ResumeAtFrame, UnwindsTheOneFrameOfOneLevel)
{
    ResumeAtBaseRepeatedly();
}

BRIDGE_SCENARIO_OF(ResumeAtFrameBridge, ResumeAtFrame, UnwindsOnlyTheInnermostOfTenLevels)
{
    ResumeAtBaseRepeatedly();
}

BRIDGE_SCENARIO_OF(ResumeAtFrameBridge, ResumeAtFrame, GoesOutLevelByLevel)
{
    for (uint32_t level = 1; level < levelCount; ++level)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        const Levels levels = ReadLevels();
        Answer(report, ActionResumeAtFrame,
               At(AwaitNumber("level landing"), levels.stackPointers[level], levels.framePointers[level]));
    }
    ResumeAtBase();
}

BRIDGE_SCENARIO_OF(ResumeAtFrameBridge, ResumeAtFrame, ContinuesByTheHandlersResultIfTheOSRefusesTo)
{
    ResumeAtBase();
}

BRIDGE_SCENARIO_OF(ResumeAtFrameBridge, ResumeAtFrame, LeadsOutOfACallThroughABadPointer)
{
    ResumeAtBase();
}

#endif
