#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <stdio.h>
#include <string>
#include <vector>

#include <windows.h>

// Every kind of exception that a thread can have by itself. The Bridge lets each one pass on, to a frame of the test's.
// Of the codes that are missing here, stack overflow has a test of its own, and the others don't come by what a
// program does: EveryKnownCodeIsReported raises them.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
struct RealFault
{
    uint32_t code;
    const char* name;
};

/// What the processor or the OS raises when a thread does what the host half has at the same place.
constexpr RealFault realFaults[] = {
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION"}, // read
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION"}, // write
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION"}, // execution of what isn't there
    {0x80000001, "EXCEPTION_GUARD_PAGE"},
    {0x80000003, "EXCEPTION_BREAKPOINT"},
    {0x80000004, "EXCEPTION_SINGLE_STEP"},
    {0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION"},
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION"},
    {0xC000008C, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
    {0xC000008D, "EXCEPTION_FLT_DENORMAL_OPERAND"},
    {0xC000008E, "EXCEPTION_FLT_DIVIDE_BY_ZERO"},
    {0xC000008F, "EXCEPTION_FLT_INEXACT_RESULT"},
    {0xC0000090, "EXCEPTION_FLT_INVALID_OPERATION"},
    {0xC0000091, "EXCEPTION_FLT_OVERFLOW"},
    {0xC0000092, "EXCEPTION_FLT_STACK_CHECK"},
    {0xC0000093, "EXCEPTION_FLT_UNDERFLOW"},
    {0xC0000094, "EXCEPTION_INT_DIVIDE_BY_ZERO"},
    {0xC0000095, "EXCEPTION_INT_OVERFLOW"},
    {0xC0000096, "EXCEPTION_PRIV_INSTRUCTION"},
};
} // namespace

#if TORVANE_HOST_HALF

namespace
{

void Append(std::vector<uint8_t>& code, const std::vector<uint8_t>& bytes)
{
    code.insert(code.end(), bytes.begin(), bytes.end());
}

/// An instruction whose last four bytes are an address.
std::vector<uint8_t> WithAddress(std::vector<uint8_t> bytes, const void* address)
{
    const uintptr_t value = reinterpret_cast<uintptr_t>(address);
    for (unsigned shift = 0; shift < 32; shift += 8)
    {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
    return bytes;
}

/// x87 code with one kind of exception unmasked.
std::vector<uint8_t> FloatingPoint(uint8_t mask, const std::vector<uint8_t>& operation)
{
    std::vector<uint8_t> code = {0xDB, 0xE3};           // fninit
    Append(code, {0x68, mask, 0x03, 0x00, 0x00});       // push control word
    Append(code, {0xD9, 0x2C, 0x24, 0x83, 0xC4, 0x04}); // fldcw [esp]; add esp, 4
    Append(code, operation);
    Append(code, {0x9B, 0xDB, 0xE3, 0xC3}); // fwait, where it is raised; fninit; ret
    return code;
}

const float denormal = 1e-40f;
const float three = 3;
const uint8_t largest[10] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0x7F};
const uint8_t smallest[10] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x01, 0x00};
const int32_t bounds[2] = {0, 1};

/// A frame whose handler returns what it is given.
struct AnsweringFrame
{
    AnsweringFrame* next;
    EXCEPTION_DISPOSITION(__cdecl* handler)(EXCEPTION_RECORD*, void*, CONTEXT*, void*);
    EXCEPTION_DISPOSITION answer;
};

EXCEPTION_DISPOSITION __cdecl GiveAnswer(EXCEPTION_RECORD* record, void* frame, CONTEXT*, void*)
{
    // Only the test's own exception gets the answer; what the OS makes of it is passed on.
    return record->ExceptionCode == occasion ? static_cast<AnsweringFrame*>(frame)->answer
                                             : ExceptionContinueSearch;
}

void RaiseToAnsweringFrame(DWORD flags, EXCEPTION_DISPOSITION answer)
{
    AnsweringFrame frame = {nullptr, &GiveAnswer, answer};
    __asm__ volatile("movl %%fs:0, %0" : "=r"(frame.next));
    __asm__ volatile("movl %0, %%fs:0" ::"r"(&frame) : "memory");
    RaiseException(occasion, flags, 0, nullptr);
    __asm__ volatile("movl %0, %%fs:0" ::"r"(frame.next) : "memory");
}

void DoWhatFaults(size_t fault)
{
    switch (fault)
    {
    case 0:
        CodePages({0xA1, 0x10, 0x00, 0x00, 0x00, 0xC3}).Run(); // mov eax, [0x10]
        break;
    case 1:
        CodePages({0xC7, 0x05, 0x20, 0, 0, 0, 1, 0, 0, 0, 0xC3}).Run(); // mov dword ptr [0x20], 1
        break;
    case 2:
        CodePages({0xB8, 0x30, 0x00, 0x00, 0x00, 0xFF, 0xE0}).Run(); // mov eax, 0x30; jmp eax
        break;
    case 3:
    {
        void* page = VirtualAlloc(nullptr, 0x1000, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD);
        std::vector<uint8_t> code = WithAddress({0xA1}, page); // mov eax, [page]
        code.push_back(0xC3);
        CodePages(code).Run();
        break;
    }
    case 4:
        CodePages({0xCC, 0xC3}).Run(); // int3
        break;
    case 5: // pushfd; or dword ptr [esp], trap flag; popfd; nop; ret
        CodePages({0x9C, 0x81, 0x0C, 0x24, 0x00, 0x01, 0x00, 0x00, 0x9D, 0x90, 0xC3}).Run();
        break;
    case 6:
        CodePages({0x0F, 0x0B, 0xC3}).Run(); // ud2
        break;
    case 7:
        RaiseToAnsweringFrame(EXCEPTION_NONCONTINUABLE, ExceptionContinueExecution);
        break;
    case 8:
        RaiseToAnsweringFrame(0, static_cast<EXCEPTION_DISPOSITION>(77));
        break;
    case 9:
    {
        std::vector<uint8_t> code = {0xB8, 0x05, 0x00, 0x00, 0x00}; // mov eax, 5
        Append(code, WithAddress({0x62, 0x05}, bounds));            // bound eax, [bounds]
        code.push_back(0xC3);
        CodePages(code).Run();
        break;
    }
    case 10:
        CodePages(FloatingPoint(0x7D, WithAddress({0xD9, 0x05}, &denormal))).Run(); // fld dword
        break;
    case 11:
        CodePages(FloatingPoint(0x7B, {0xD9, 0xE8, 0xD9, 0xEE, 0xDE, 0xF9})).Run(); // fld1; fldz; fdivp
        break;
    case 12:
    {
        std::vector<uint8_t> code = WithAddress({0xD9, 0xE8, 0xD8, 0x35}, &three); // fld1; fdiv dword
        CodePages(FloatingPoint(0x5F, code)).Run();
        break;
    }
    case 13:
        CodePages(FloatingPoint(0x7E, {0xD9, 0xEE, 0xD9, 0xEE, 0xDE, 0xF9})).Run(); // fldz; fldz; fdivp
        break;
    case 14:
    {
        std::vector<uint8_t> code = WithAddress({0xDB, 0x2D}, largest); // fld tbyte
        Append(code, {0xD8, 0xC8});                                     // fmul st(0)
        CodePages(FloatingPoint(0x77, code)).Run();
        break;
    }
    case 15:
        CodePages(FloatingPoint(0x7E, {0xD8, 0xC0})).Run(); // fadd st(0) of an empty stack
        break;
    case 16:
    {
        std::vector<uint8_t> code = WithAddress({0xDB, 0x2D}, smallest); // fld tbyte
        Append(code, {0xD8, 0xC8});                                      // fmul st(0)
        CodePages(FloatingPoint(0x6F, code)).Run();
        break;
    }
    case 17: // mov eax, 1; cdq; xor ecx, ecx; div ecx
        CodePages({0xB8, 0x01, 0x00, 0x00, 0x00, 0x99, 0x31, 0xC9, 0xF7, 0xF1, 0xC3}).Run();
        break;
    case 18:
        CodePages({0xB0, 0x7F, 0x04, 0x01, 0xCE, 0xC3}).Run(); // mov al, 127; add al, 1; into
        break;
    case 19:
        CodePages({0xF4, 0xC3}).Run(); // hlt
        break;
    default:
        FAIL() << "Nothing is expected of fault " << fault;
    }
}
} // namespace

HOST_TEST_OF(ExceptionHost, RealFaults, AreReportedAndPassedOn)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    std::vector<std::string> lines;
    for (size_t i = 0; i < sizeof(realFaults) / sizeof(realFaults[0]); ++i)
    {
        SCOPED_TRACE(realFaults[i].name);
        EXPECT_FALSE(EndsByItself([i] { DoWhatFaults(i); }));
        ASSERT_EQ(i + 1, handler.Count());
        const EXCEPTION_RECORD& record = handler.Latest().record;
        EXPECT_EQ(realFaults[i].code, record.ExceptionCode);
        char line[200];
        snprintf(line, sizeof(line), "%s exception %s (0x%08X) occurred at address 0x%08X",
                 record.ExceptionFlags == 1 ? "Non-continuable" : "Continuable", realFaults[i].name,
                 realFaults[i].code,
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(record.ExceptionAddress)));
        lines.push_back(line);
    }
    ExpectLogOrder(lines);
    EXPECT_EQ(handler.Count(), CountInLog("Received exception handler action 0"));
}

#else

BRIDGE_SCENARIO_OF(ExceptionBridge, RealFaults, AreReportedAndPassedOn)
{
    for (const RealFault& fault : realFaults)
    {
        SCOPED_TRACE(fault.name);
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        EXPECT_EQ(fault.code, report.record.ExceptionCode);
        Answer(report, ActionContinueSearch);
    }
}

#endif
