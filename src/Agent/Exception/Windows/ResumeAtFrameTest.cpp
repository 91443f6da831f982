#include "Agent/Exception/Windows/ResumeAtFrame.h"

#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestInternalAPI.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <vector>

using namespace Torvane;
using namespace Torvane::Testing;

// Both are found by the assembly below.
extern "C"
{
void __cdecl TorvaneUnwindTopFrame(EXCEPTION_RECORD* record);

struct KeptRegisters
{
    uint32_t ebx;
    uint32_t esi;
    uint32_t edi;
    uint32_t ebp;
    uint32_t esp; ///< after the call minus before it
    uint32_t direction;
};

/// Sets all registers that a function keeps for its caller, unwinds, and returns what they are then.
void __cdecl UnwindWithRegistersSet(EXCEPTION_RECORD* record, KeptRegisters* kept);

/// Where this program keeps the address of the OS's function.
extern void* importedRtlUnwind __asm__("__imp__RtlUnwind@16");

/// A `RtlUnwind` that calls no handler, and brings back no register but those that it has to.
extern const uint8_t losingRtlUnwind[];
}

asm(R"(
    .text
_UnwindWithRegistersSet:
    pushl %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    movl 20(%esp), %eax
    movl $0x11111111, %ebx
    movl $0x22222222, %esi
    movl $0x33333333, %edi
    movl $0x44444444, %ebp
    pushl %esp
    pushl %eax
    calll _TorvaneUnwindTopFrame
    addl $4, %esp
    popl %ecx
    subl %esp, %ecx
    negl %ecx
    movl 24(%esp), %eax
    movl %ebx, (%eax)
    movl %esi, 4(%eax)
    movl %edi, 8(%eax)
    movl %ebp, 12(%eax)
    movl %ecx, 16(%eax)
    pushfl
    popl %ecx
    andl $0x400, %ecx
    movl %ecx, 20(%eax)
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    ret

_losingRtlUnwind:
    movl 4(%esp), %eax
    movl %eax, %fs:0
    movl 8(%esp), %ecx
    movl 16(%esp), %eax
    addl $20, %esp
    movl $0xDEADDEAD, %ebx
    movl %ebx, %edx
    movl %ebx, %esi
    movl %ebx, %edi
    std
    jmpl *%ecx
)");

namespace
{
/// An exception frame that notes what it is called for. Leaves the thread's list when it is unwound or the object goes. Begins with the two words that the OS knows.
struct NotingFrame
{
    void* next = nullptr;
    EXCEPTION_DISPOSITION(__cdecl* handler)(EXCEPTION_RECORD*, void*, CONTEXT*, void*) = &Note;
    uint32_t calls = 0;
    uint32_t code = 0;
    uint32_t flags = 0;

    NotingFrame() = default;

    ~NotingFrame()
    {
        if (Top() == this)
        {
            SetTop(next);
        }
    }

    NotingFrame(const NotingFrame&) = delete;
    NotingFrame& operator=(const NotingFrame&) = delete;

    void Register()
    {
        next = Top();
        SetTop(this);
    }

    static void* Top()
    {
        void* top = nullptr;
        __asm__ volatile("movl %%fs:0, %0" : "=r"(top));
        return top;
    }

private:
    static EXCEPTION_DISPOSITION __cdecl Note(EXCEPTION_RECORD* record, void* address, CONTEXT*, void*)
    {
        NotingFrame* frame = static_cast<NotingFrame*>(address);
        ++frame->calls;
        frame->code = record->ExceptionCode;
        frame->flags = record->ExceptionFlags;
        return ExceptionContinueSearch;
    }

    static void SetTop(void* frame)
    {
        __asm__ volatile("movl %0, %%fs:0" ::"r"(frame) : "memory");
    }
};

EXCEPTION_RECORD DivisionByZero()
{
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = EXCEPTION_INT_DIVIDE_BY_ZERO;
    return record;
}

void SetImportedRtlUnwind(void* function)
{
    DWORD protection = 0;
    EXPECT_TRUE(VirtualProtect(&importedRtlUnwind, sizeof(importedRtlUnwind), PAGE_READWRITE, &protection));
    importedRtlUnwind = function;
    EXPECT_TRUE(VirtualProtect(&importedRtlUnwind, sizeof(importedRtlUnwind), protection, &protection));
}

CONTEXT ContextOfDistinctBytes()
{
    CONTEXT context;
    for (size_t i = 0; i < sizeof(context); ++i)
    {
        reinterpret_cast<uint8_t*>(&context)[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    return context;
}

/// Takes the place of the OS's function, and returns, as that does only after a failure.
class FakeContinue
{
public:
    explicit FakeContinue(NTSTATUS wanted)
    {
        status = wanted;
        calls = 0;
        TestInternalAPI::Get().NtContinue.pointer = &Call;
    }

    static inline uint32_t calls;
    static inline CONTEXT context;
    static inline BOOLEAN testAlert;
    static inline void* topFrame;
    static inline DWORD lastError;

private:
    static NTSTATUS NTAPI Call(CONTEXT* givenContext, BOOLEAN givenTestAlert)
    {
        ++calls;
        context = *givenContext;
        testAlert = givenTestAlert;
        topFrame = NotingFrame::Top();
        lastError = GetLastError();
        return status;
    }

    static inline NTSTATUS status;
    TestInternalAPI internalAPI;
};
} // namespace

TEST(ResumeAtFrame, UnwindsExactlyTheTopFrame)
{
    // An outer frame has to be at a higher address.
    NotingFrame frames[2];
    NotingFrame& outer = frames[1];
    NotingFrame& inner = frames[0];
    outer.Register();
    inner.Register();
    EXCEPTION_RECORD record = DivisionByZero();
    TorvaneUnwindTopFrame(&record);
    EXPECT_EQ(&outer, NotingFrame::Top());
    EXPECT_EQ(1u, inner.calls);
    EXPECT_EQ(static_cast<uint32_t>(EXCEPTION_INT_DIVIDE_BY_ZERO), inner.code);
    EXPECT_EQ(static_cast<uint32_t>(EXCEPTION_UNWINDING), inner.flags);
    EXPECT_EQ(0u, outer.calls);
    TorvaneUnwindTopFrame(&record);
    EXPECT_EQ(1u, outer.calls);
    EXPECT_EQ(outer.next, NotingFrame::Top());
    EXPECT_EQ(1u, inner.calls);
}

TEST(ResumeAtFrame, UnwindingKeepsWhatTheCompilerReliesOn)
{
    for (const bool losing : {false, true})
    {
        NotingFrame frame;
        frame.Register();
        EXCEPTION_RECORD record = DivisionByZero();
        KeptRegisters kept = {};
        void* const before = importedRtlUnwind;
        if (losing)
        {
            SetImportedRtlUnwind(const_cast<uint8_t*>(losingRtlUnwind));
        }
        UnwindWithRegistersSet(&record, &kept);
        SetImportedRtlUnwind(before);
        SCOPED_TRACE(losing);
        EXPECT_EQ(frame.next, NotingFrame::Top());
        EXPECT_EQ(0x11111111u, kept.ebx);
        EXPECT_EQ(0x22222222u, kept.esi);
        EXPECT_EQ(0x33333333u, kept.edi);
        EXPECT_EQ(0x44444444u, kept.ebp);
        EXPECT_EQ(0u, kept.esp);
        EXPECT_EQ(0u, kept.direction);
    }
}

TEST(ResumeAtFrame, UnwindsAThousandTimesWithoutUsingUpTheStack)
{
    for (uint32_t i = 0; i < 1000; ++i)
    {
        NotingFrame frame;
        frame.Register();
        EXCEPTION_RECORD record = DivisionByZero();
        KeptRegisters kept = {};
        UnwindWithRegistersSet(&record, &kept);
        ASSERT_EQ(1u, frame.calls);
        ASSERT_EQ(0u, kept.esp);
    }
}

TEST(ResumeAtFrame, ContinuesWithTheLowHalvesOfTheThreeWords)
{
    NotingFrame frame;
    frame.Register();
    EXCEPTION_RECORD record = DivisionByZero();
    CONTEXT context = ContextOfDistinctBytes();
    CONTEXT expected = context;
    expected.Eip = 0x11223344;
    expected.Esp = 0x55667788;
    expected.Ebp = 0x99AABBCC;
    EXCEPTION_POINTERS exception = {&record, &context};
    const RecordedLog log;
    const FakeContinue fake(0);
    ResumeAtFrame(exception, {0xFFFFFFFF11223344, 0xEEEEEEEE55667788, 0xDDDDDDDD99AABBCC}, 4711);
    EXPECT_EQ(1u, FakeContinue::calls);
    EXPECT_EQ(0, memcmp(&expected, &FakeContinue::context, sizeof(expected)));
    EXPECT_EQ(0, FakeContinue::testAlert);
    EXPECT_EQ(frame.next, FakeContinue::topFrame) << "Unwound before the thread continues.";
    EXPECT_EQ(4711u, FakeContinue::lastError);
    EXPECT_TRUE(log.GetLines().empty());
}

TEST(ResumeAtFrame, ReportsThatAThreadCannotContinue)
{
    NotingFrame frame;
    frame.Register();
    EXCEPTION_RECORD record = DivisionByZero();
    CONTEXT context = ContextOfDistinctBytes();
    EXCEPTION_POINTERS exception = {&record, &context};
    const RecordedLog log;
    const FakeContinue fake(static_cast<NTSTATUS>(0xC000000D));
    ResumeAtFrame(exception, {0x1000, 0x2000, 0x3000}, 0);
    EXPECT_EQ(std::vector<std::string>{"ERR Call to function NtContinue failed. Error: 0xC000000D"},
              log.GetLines());
    EXPECT_EQ(1u, frame.calls);
}
