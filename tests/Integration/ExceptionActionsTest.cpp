#include "tests/Support/Integration/IntegrationTest.h"

#include <iterator>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

#include <windows.h>

// What becomes of a thread that faulted, for each decision but the one about frames.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
/// Decisions that let the exception pass on.
constexpr uint32_t passingActions[] = {0, 4, 5, 7, 0x80000003, 0xFFFFFFFF};

struct Instruction
{
    size_t length;
    uint8_t bytes[15];
};

/// One of each length, which faults when eax is 0.
constexpr Instruction faultingInstructions[] = {
    {1, {0xF4}},                         // hlt
    {2, {0x8B, 0x08}},                   // mov ecx, [eax]
    {3, {0x8B, 0x48, 0x10}},             // mov ecx, [eax + 16]
    {4, {0x0F, 0xB6, 0x48, 0x10}},       // movzx ecx, byte ptr [eax + 16]
    {5, {0x66, 0x0F, 0x6F, 0x40, 0x10}}, // movdqa xmm0, [eax + 16]
    {6, {0xC7, 0x00, 1, 2, 3, 4}},       // mov dword ptr [eax], ...
    {7, {0x8B, 0x8C, 0x40, 16, 0, 0, 0}},
    // mov ecx, [eax + eax*2 + 16]; mov dword ptr [eax + eax*2 + 16], ...
    {8, {0xC7, 0x44, 0x40, 0x10, 1, 2, 3, 4}},
    {9, {0xF0, 0x0F, 0xC7, 0x8C, 0x40, 16, 0, 0, 0}},                          // lock cmpxchg8b
    {10, {0xC7, 0x05, 32, 0, 0, 0, 1, 2, 3, 4}},                               // mov dword ptr [32], ...
    {11, {0xC7, 0x84, 0x40, 16, 0, 0, 0, 1, 2, 3, 4}},                         // mov dword ptr [...], ...
    {12, {0xF0, 0x81, 0x84, 0x40, 16, 0, 0, 0, 1, 2, 3, 4}},                   // lock add
    {13, {0x3E, 0xF0, 0x81, 0x84, 0x40, 16, 0, 0, 0, 1, 2, 3, 4}},             // with a segment
    {14, {0xF2, 0x3E, 0xF0, 0x81, 0x84, 0x40, 16, 0, 0, 0, 1, 2, 3, 4}},       // and xacquire
    {15, {0xF2, 0x3E, 0x3E, 0xF0, 0x81, 0x84, 0x40, 16, 0, 0, 0, 1, 2, 3, 4}}, // and the segment again
};

#if TORVANE_HOST_HALF

/// Faults, and no decoder knows it.
constexpr Instruction undecodable = {3, {0xFF, 0x38, 0x90}};

constexpr uint32_t answer = 0x600D;

/// xor eax, eax; instruction; mov eax, answer; ret
std::vector<uint8_t> Around(const Instruction& instruction)
{
    std::vector<uint8_t> code = {0x31, 0xC0};
    code.insert(code.end(), instruction.bytes, instruction.bytes + instruction.length);
    const uint8_t end[] = {0xB8, answer & 0xFF, answer >> 8, 0, 0, 0xC3};
    code.insert(code.end(), std::begin(end), std::end(end));
    return code;
}

/// Code that does nothing, of each length; as Intel's manual has it.
std::vector<uint8_t> NoOperation(size_t length)
{
    const std::vector<uint8_t> forms[] = {
        {},
        {0x90},
        {0x66, 0x90},
        {0x0F, 0x1F, 0x00},
        {0x0F, 0x1F, 0x40, 0x00},
        {0x0F, 0x1F, 0x44, 0x00, 0x00},
        {0x66, 0x0F, 0x1F, 0x44, 0x00, 0x00},
        {0x0F, 0x1F, 0x80, 0x00, 0x00, 0x00, 0x00},
        {0x0F, 0x1F, 0x84, 0x00, 0x00, 0x00, 0x00, 0x00},
    };
    std::vector<uint8_t> bytes = forms[length < 8 ? length : 8];
    if (length > 8)
    {
        bytes.insert(bytes.end(), forms[length - 8].begin(), forms[length - 8].end());
    }
    return bytes;
}

std::string WithAddress(const char* text, const void* address)
{
    char line[100];
    snprintf(line, sizeof(line), "%s0x%08X", text,
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)));
    return line;
}

#endif
} // namespace

#if TORVANE_HOST_HALF

// All registers of a thread, before a fault that is skipped and after it.
extern "C"
{
struct Registers
{
    uint32_t general[8]; // in the order of PUSHAD, from the lowest address
    uint32_t flags;
    uint8_t floatingPoint[512] __attribute__((aligned(16))); // as of FXSAVE
};
Registers registersBefore;
Registers registersAfter;
void FaultWithRegistersSet();
extern const uint8_t faultInTheImage[];
uint32_t FaultInTheImage();
}

asm(R"(
    .text
_FaultWithRegistersSet:
    pushal
    pushfl
    fninit
    fldpi
    fldl2e
    movl $0x11111111, %eax
    movd %eax, %xmm0
    movl $0x22222222, %ecx
    movd %ecx, %xmm7
    movl $0x33333333, %edx
    movl $0x44444444, %ebx
    movl $0x55555555, %ebp
    movl $0x66666666, %esi
    movl $0x77777777, %edi
    stc
    std
    fxsave _registersBefore + 48
    pushfl
    popl _registersBefore + 32
    movl %esp, _savedStackPointer
    movl $_registersBefore + 32, %esp
    pushal
    movl _savedStackPointer, %esp
    pushl %esp
    popl _registersBefore + 12
    pushl _registersBefore + 32
    popfl
    movl 0x40, %ecx
    fxsave _registersAfter + 48
    pushfl
    popl _registersAfter + 32
    movl %esp, _savedStackPointer
    movl $_registersAfter + 32, %esp
    pushal
    movl _savedStackPointer, %esp
    pushl %esp
    popl _registersAfter + 12
    fninit
    popfl
    popal
    ret
    .globl _FaultInTheImage, _faultInTheImage
    .p2align 4
_FaultInTheImage:
    xorl %eax, %eax
_faultInTheImage:
    movl 0x50, %eax
    incl %eax
    ret
    .lcomm _savedStackPointer, 4
)");

HOST_TEST_OF(ExceptionHost, ExceptionActions, ContinueSearchAndIgnoreAndUnknownActionsPassOn)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    const CodePages code(Around(faultingInstructions[1]));
    const std::vector<uint8_t> before = code.Bytes();
    size_t count = 0;
    for (const uint32_t action : passingActions)
    {
        SCOPED_TRACE(action);
        EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
        EXPECT_EQ(++count, handler.Count());
        EXPECT_EQ(code.Start() + 2, handler.Latest().record.ExceptionAddress);
        EXPECT_EQ(CodePages::lastError, handler.Latest().state.lastError);
        EXPECT_EQ(1u, CountInLog("Received exception handler action " + std::to_string(action)));
    }
    EXPECT_EQ(before, code.Bytes());
}

HOST_TEST_OF(ExceptionHost, ExceptionActions, ContinueSearchLeavesTheThreadsStateToTheNextHandler)
{
    ASSERT_TRUE(Start());
    static ThreadState before;
    struct FirstHandler
    {
        static LONG CALLBACK See(EXCEPTION_POINTERS*)
        {
            before = before.lastError == 0 ? ThreadState::Get() : before;
            return EXCEPTION_CONTINUE_SEARCH;
        }
    };
    void* const first = AddVectoredExceptionHandler(1, &FirstHandler::See);
    LastHandler handler;
    // push 0x0341; fldcw [esp]; push 0x1F80 with another rounding; ldmxcsr [esp]; add esp, 8; fld1; fldz; fdivp; fwait
    const CodePages code({0x68, 0x41, 0x03, 0,    0,    0xD9, 0x2C, 0x24, 0x68, 0x80,
                          0x7F, 0,    0,    0x0F, 0xAE, 0x14, 0x24, 0x83, 0xC4, 8,
                          0xD9, 0xE8, 0xD9, 0xEE, 0xDE, 0xF9, 0x9B, 0xC3});
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    RemoveVectoredExceptionHandler(first);
    ASSERT_EQ(1u, handler.Count());
    const ThreadState& after = handler.Latest().state;
    EXPECT_EQ(CodePages::lastError, after.lastError);
    EXPECT_EQ(before.x87Control, after.x87Control);
    EXPECT_EQ(before.x87Status, after.x87Status);
    EXPECT_EQ(before.sse, after.sse);
}

HOST_TEST_OF(ExceptionHost, ExceptionActions, SkipContinuesAfterAnInstructionOfAnyLength)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    for (const Instruction& instruction : faultingInstructions)
    {
        SCOPED_TRACE(instruction.length);
        const CodePages code(Around(instruction), PAGE_EXECUTE_READ, 16);
        const std::vector<uint8_t> before = code.Bytes();
        uint32_t result = 0;
        EXPECT_TRUE(EndsByItself([&] { result = code.Run(); }));
        EXPECT_EQ(answer, result);
        EXPECT_EQ(before, code.Bytes());
    }
    EXPECT_EQ(0u, handler.Count());
    EXPECT_EQ(std::size(faultingInstructions), CountInLog("Received exception handler action 2"));
}

HOST_TEST_OF(ExceptionHost, ExceptionActions, SkipKeepsEveryRegister)
{
    ASSERT_TRUE(Start());
    EXPECT_TRUE(EndsByItself(&FaultWithRegistersSet));
    EXPECT_EQ(0x77777777u, registersBefore.general[0]);
    EXPECT_EQ(0x11111111u, registersBefore.general[7]);
    for (size_t i = 0; i < std::size(registersBefore.general); ++i)
    {
        EXPECT_EQ(registersBefore.general[i], registersAfter.general[i]) << "register " << i;
    }
    EXPECT_EQ(0x401u, registersBefore.flags & 0x401) << "carry and direction";
    EXPECT_EQ(registersBefore.flags, registersAfter.flags);
    // Control and status, and the registers of either unit; not the address of the latest x87 instruction.
    EXPECT_EQ(0, memcmp(registersBefore.floatingPoint, registersAfter.floatingPoint, 5));
    EXPECT_EQ(0, memcmp(registersBefore.floatingPoint + 24, registersAfter.floatingPoint + 24, 288 - 24));
}

HOST_TEST_OF(ExceptionHost, ExceptionActions, NoOperationTakesThePlaceOfAnInstructionOfAnyLength)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    for (const Instruction& instruction : faultingInstructions)
    {
        SCOPED_TRACE(instruction.length);
        const bool writable = instruction.length % 3 == 0;
        const DWORD protection = writable ? PAGE_EXECUTE_READWRITE : PAGE_EXECUTE_READ;
        // The instructions of even lengths cross the border of two pages.
        const size_t offset = instruction.length % 2 == 0 ? CodePages::size / 2 - 3 : 100;
        const CodePages code(Around(instruction), protection, offset);
        std::vector<uint8_t> expected = code.Bytes();
        const std::vector<uint8_t> nothing = NoOperation(instruction.length);
        memcpy(&expected[offset + 2], nothing.data(), nothing.size());

        uint32_t results[3] = {};
        EXPECT_TRUE(EndsByItself([&] {
            for (uint32_t& result : results)
            {
                result = code.Run();
            }
        }));
        EXPECT_EQ(expected, code.Bytes());
        EXPECT_EQ(protection, code.Protection());
        for (const uint32_t result : results)
        {
            EXPECT_EQ(answer, result);
        }
    }
    EXPECT_EQ(0u, handler.Count());
    EXPECT_EQ(std::size(faultingInstructions), CountInLog("Received exception handler action 1"));
    ExpectNoLine("Could not");
}

HOST_TEST_OF(ExceptionHost, ExceptionActions, NoOperationIsWrittenIntoAnImageThatStaysAsProtected)
{
    ASSERT_TRUE(Start());
    MEMORY_BASIC_INFORMATION before = {};
    MEMORY_BASIC_INFORMATION after = {};
    VirtualQuery(faultInTheImage, &before, sizeof(before));
    uint32_t result = 0;
    EXPECT_TRUE(EndsByItself([&result] { result = FaultInTheImage(); }));
    EXPECT_EQ(1u, result);
    EXPECT_TRUE(EndsByItself([&result] { result = FaultInTheImage(); }));
    EXPECT_EQ(1u, result);
    VirtualQuery(faultInTheImage, &after, sizeof(after));
    EXPECT_EQ(static_cast<DWORD>(PAGE_EXECUTE_READ), before.Protect);
    EXPECT_EQ(before.Protect, after.Protect);
    const std::vector<uint8_t> nothing = NoOperation(5);
    EXPECT_EQ(0, memcmp(faultInTheImage, nothing.data(), nothing.size()));
    EXPECT_EQ(0x40, faultInTheImage[nothing.size()]);
    EXPECT_EQ(1u, CountInLog("Received exception handler action 1"));
}

HOST_TEST_OF(ExceptionHost, ExceptionActions, WhatCannotBeDecodedFaultsAgain)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    const CodePages code(Around(undecodable));
    const std::vector<uint8_t> before = code.Bytes();
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(code.Start() + 2, handler.Latest().record.ExceptionAddress);
    EXPECT_EQ(before, code.Bytes());
    EXPECT_EQ(static_cast<DWORD>(PAGE_EXECUTE_READ), code.Protection());
    const std::string line = WithAddress("Could not decode instruction at address ", code.Start() + 2);
    EXPECT_EQ(3u, CountInLog(line));
    for (const LogRecord& record : ReadLog())
    {
        if (record.message == line)
        {
            EXPECT_EQ("ERR", record.tag);
        }
    }
    ExpectLogOrder({
        "Received exception handler action 1",
        line,
        "Received exception handler action 2",
        line,
        "Received exception handler action 1",
        line,
        "Received exception handler action 4",
    });
}

#else

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, ContinueSearchAndIgnoreAndUnknownActionsPassOn)
{
    for (const uint32_t action : passingActions)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        Answer(report, action, {1, 2, 3});
    }
    EXPECT_TRUE(NothingElseCame());
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, ContinueSearchLeavesTheThreadsStateToTheNextHandler)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_FLT_DIVIDE_BY_ZERO), report.record.ExceptionCode);
    Answer(report, ActionContinueSearch);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, SkipContinuesAfterAnInstructionOfAnyLength)
{
    for (const Instruction& instruction : faultingInstructions)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report) << instruction.length;
        EXPECT_EQ(report.record.ExceptionAddress, report.context.Eip);
        Answer(report, ActionSkipInstruction, {1, 2, 3});
    }
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, SkipKeepsEveryRegister)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    EXPECT_EQ(0x11111111u, report.context.Eax);
    EXPECT_EQ(0x77777777u, report.context.Edi);
    Answer(report, ActionSkipInstruction, {1, 2, 3});
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, NoOperationTakesThePlaceOfAnInstructionOfAnyLength)
{
    for (const Instruction& instruction : faultingInstructions)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report) << instruction.length;
        Answer(report, ActionNopInstruction);
    }
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, NoOperationIsWrittenIntoAnImageThatStaysAsProtected)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Answer(report, ActionNopInstruction);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionActions, WhatCannotBeDecodedFaultsAgain)
{
    AddressSlot address = 0;
    for (const uint32_t action :
         {ActionNopInstruction, ActionSkipInstruction, ActionNopInstruction, ActionIgnore})
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ILLEGAL_INSTRUCTION), report.record.ExceptionCode);
        EXPECT_EQ(report.record.ExceptionAddress, report.context.Eip);
        EXPECT_TRUE(address == 0 || address == report.record.ExceptionAddress);
        address = report.record.ExceptionAddress;
        Answer(report, action);
    }
}

#endif
