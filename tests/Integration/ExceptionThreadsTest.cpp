#include "tests/Support/Integration/IntegrationTest.h"

#include <functional>
#include <iterator>
#include <string.h>
#include <string>
#include <vector>

#include <windows.h>

// Exceptions one after the other, one within the other, and with hardly any stack left.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#include "tests/Support/TestThread.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
/// Bytes from a faulting instruction to the end of its thread's stack. The OS keeps the last pages for itself.
constexpr size_t nearlyNoStack[] = {0x10000, 0x8000, 0x5000, 0x4800};
} // namespace

#if TORVANE_HOST_HALF

namespace
{
constexpr uintptr_t nowhere = 0x5678;

/// mov eax, [0x10]; ret
const std::vector<uint8_t> faultingCode = {0xA1, 0x10, 0x00, 0x00, 0x00, 0xC3};

/// Goes down the stack until no more than `wanted` bytes of it can be used, and calls `function` there.
__attribute__((noinline)) void CallNearTheEnd(size_t wanted, const std::function<void()>& function)
{
    MEMORY_BASIC_INFORMATION reserved = {};
    VirtualQuery(__builtin_frame_address(0), &reserved, sizeof(reserved));
    const auto* here = static_cast<const uint8_t*>(__builtin_frame_address(0));
    const auto* end = static_cast<const uint8_t*>(reserved.AllocationBase);
    const size_t left = static_cast<size_t>(here - end);
    if (left > wanted)
    {
        volatile uint8_t room[256];
        room[0] = 0;
        CallNearTheEnd(wanted, function);
        room[1] = 1; // no call in place of the return
        return;
    }
    function();
}

__attribute__((noinline)) uint32_t UseUpTheStack(uint32_t depth)
{
    volatile uint8_t room[1024];
    room[depth % sizeof(room)] = 1;
    if (depth == UINT32_MAX)
    {
        return 0; // never
    }
    return UseUpTheStack(depth + 1) + room[0];
}
} // namespace

HOST_TEST_OF(ExceptionHost, ExceptionThreads, TakeTheirTurns)
{
    ASSERT_TRUE(Start());
    const CodePages code(faultingCode);
    const FirstHandler before(code.Start());
    TestThread first([&code] { code.Run(); });
    ASSERT_TRUE(Await("first dialog"));
    TestThread second([&code] { code.Run(); });
    ASSERT_TRUE(WaitUntil([] { return FirstHandler::Count() == 2; }))
        << "The second one has faulted as well.";
    Publish("first", first.Id());
    Publish("second", second.Id());
    EXPECT_TRUE(first.WaitForEnd(testTimeout));
    ASSERT_TRUE(Await("second dialog"));
    EXPECT_FALSE(second.HasEnded());
    Signal("continue");
    EXPECT_TRUE(second.WaitForEnd(testTimeout));

    // Each one's lines are together: the lock is held from the first to the last of them.
    std::vector<std::string> lines;
    for (const LogRecord& record : ReadLog())
    {
        if (record.message.rfind("Select an action", 0) == 0 || record.message.rfind("Received exc", 0) == 0)
        {
            lines.push_back(record.message.substr(0, 8));
        }
    }
    EXPECT_EQ((std::vector<std::string>{"Select a", "Received", "Select a", "Received"}), lines);
}

HOST_TEST_OF(ExceptionHost, ExceptionThreads, AFaultWhileTheInstructionIsReadIsReportedToo)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    for (const uint32_t action : {1, 2})
    {
        const size_t earlier = handler.Count();
        EXPECT_FALSE(EndsByItself([] { reinterpret_cast<void(__cdecl*)()>(nowhere)(); }));
        EXPECT_EQ(earlier + 1, handler.Count())
            << "The outer one has been acted on, the inner one passes on.";
        EXPECT_EQ(nowhere, handler.Latest().record.ExceptionInformation[1]);
        EXPECT_EQ(0u, handler.Latest().record.ExceptionInformation[0]);
        ExpectLogOrder({
            "Information: The thread caused a user-mode data execution prevention (DEP) violation at virtual "
            "address 0x00005678",
            "Received exception handler action " + std::to_string(action),
            "Information: The thread attempted to read the inaccessible data at virtual address 0x00005678",
            "Received exception handler action 0",
        });
    }
    ExpectNoLine("Could not decode");

    // Nothing is left of the lock on this thread.
    const CodePages code(faultingCode);
    TestThread other([&code] { code.Run(); });
    EXPECT_TRUE(other.WaitForEnd(testTimeout));
}

HOST_TEST_OF(ExceptionHost, ExceptionThreads, AFaultInAPatchesEntryPointIsNotReported)
{
    ASSERT_TRUE(Start());
    LastHandler handler;

    // The entry point lets another thread fault, and faults itself.
    struct Meeting
    {
        HANDLE entered = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        HANDLE leave = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    };
    static Meeting meeting;
    struct EntryPoint
    {
        static BOOL WINAPI Run(void*, DWORD reason, void*)
        {
            SetEvent(meeting.entered);
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(meeting.leave, testTimeout));
            *reinterpret_cast<volatile DWORD*>(nowhere) = reason;
            return TRUE;
        }
    };
    // jmp Run, in place of what is no instruction
    const CodePages entryPoint({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, PAGE_EXECUTE_READWRITE);
    Publish("entry point", entryPoint.Start());
    Publish("function", reinterpret_cast<const void*>(&EntryPoint::Run));

    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(meeting.entered, testTimeout));
    const CodePages code(faultingCode);
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); })) << "declined";
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(CodePages::lastError, handler.Latest().state.lastError);
    SetEvent(meeting.leave);
    EXPECT_TRUE(WaitForLog("Exception thrown while calling the patch entry point"));
    ASSERT_TRUE(Await("called"));
    ExpectNoLine("EXCEPTION_");
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 3, 4, 5, 6}),
              std::vector<uint8_t>(entryPoint.Start(), entryPoint.Start() + 6))
        << "The second code is put there all the same.";

    EXPECT_TRUE(EndsByItself([&code] { code.Run(); })) << "From now on the Broker decides again.";
    EXPECT_EQ(1u, handler.Count());
}

HOST_TEST_OF(ExceptionHost, ExceptionThreads, HardlyAnyStackIsEnoughForAReport)
{
    ASSERT_TRUE(Start());
    const CodePages code(faultingCode);
    for (const size_t left : nearlyNoStack)
    {
        TestThread thread([&] { CallNearTheEnd(left, [&code] { code.Run(); }); });
        ASSERT_TRUE(thread.WaitForEnd(testTimeout)) << left;
    }
    EXPECT_EQ(std::size(nearlyNoStack), CountInLog("Received exception handler action 2"));
}

HOST_TEST_OF(ExceptionHost, ExceptionThreads, AStackOverflowIsReportedWithoutALogLine)
{
    ASSERT_TRUE(Start());
    size_t before = 0;
    size_t after = 0;
    DWORD id = 0;
    DWORD code = 0;
    TestThread thread([&] {
        LastHandler handler;
        before = ReadLog().size();
        EXPECT_FALSE(EndsByItself([] { UseUpTheStack(0); }));
        EXPECT_EQ(1u, handler.Count());
        code = handler.Latest().record.ExceptionCode;
        id = GetCurrentThreadId();
    });
    ASSERT_TRUE(thread.WaitForEnd(testTimeout));
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW), code);
    Publish("thread", id);
    ASSERT_TRUE(Await("answered"));
    for (const LogRecord& record : ReadLog())
    {
        ++after;
        if (after > before)
        {
            EXPECT_EQ("Processing Blob::HandleExceptionWindowsResult", record.message);
        }
    }
    EXPECT_EQ(before + 1, after);
}

#else

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionThreads, TakeTheirTurns)
{
    const ExceptionReport first = AwaitException();
    ASSERT_TRUE(first);
    Signal("first dialog");
    EXPECT_EQ(AwaitNumber("first"), first.blob->threadId);
    EXPECT_TRUE(NothingElseCame()) << "The second one waits its turn.";
    Answer(first, ActionSkipInstruction);
    const ExceptionReport second = AwaitException();
    ASSERT_TRUE(second);
    EXPECT_EQ(AwaitNumber("second"), second.blob->threadId);
    EXPECT_NE(first.blob->action, second.blob->action) << "Each one waits on a stack of its own.";
    Signal("second dialog");
    ASSERT_TRUE(Await("continue"));
    Answer(second, ActionSkipInstruction);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionThreads, AFaultWhileTheInstructionIsReadIsReportedToo)
{
    for (const uint32_t action : {ActionNopInstruction, ActionSkipInstruction})
    {
        const ExceptionReport outer = AwaitException();
        ASSERT_TRUE(outer);
        EXPECT_EQ(0x5678u, outer.record.ExceptionAddress);
        EXPECT_EQ(8u, outer.record.ExceptionInformation[0]);
        Answer(outer, action);
        const ExceptionReport inner = AwaitException();
        ASSERT_TRUE(inner);
        EXPECT_EQ(outer.blob->threadId, inner.blob->threadId);
        EXPECT_EQ(0u, inner.record.ExceptionInformation[0]) << "a read";
        EXPECT_EQ(0x5678u, inner.record.ExceptionInformation[1]);
        EXPECT_LT(inner.context.Esp, outer.context.Esp);
        Answer(inner, ActionContinueSearch);
    }
    const ExceptionReport last = AwaitException();
    ASSERT_TRUE(last);
    Answer(last, ActionSkipInstruction);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionThreads, AFaultInAPatchesEntryPointIsNotReported)
{
    const AddressSlot address = AwaitNumber("entry point");
    const uint32_t distance = static_cast<uint32_t>(AwaitNumber("function") - (address + 5));
    EntryPointCode jump = {{0xE9, 0, 0, 0, 0, 0x90}};
    memcpy(jump.bytes + 1, &distance, sizeof(distance));
    EXPECT_TRUE(SendCallEntryPoint(link, address, 0, jump, {{1, 2, 3, 4, 5, 6}}));
    EXPECT_TRUE(NothingElseCame()) << "No exception was reported.";
    Signal("called");
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Answer(report, ActionSkipInstruction);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionThreads, HardlyAnyStackIsEnoughForAReport)
{
    for (const size_t left : nearlyNoStack)
    {
        SCOPED_TRACE(left);
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), report.record.ExceptionCode);
        Answer(report, ActionSkipInstruction);
    }
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionThreads, AStackOverflowIsReportedWithoutALogLine)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW), report.record.ExceptionCode);
    Answer(report, ActionContinueSearch);
    EXPECT_EQ(AwaitNumber("thread"), report.blob->threadId);
    Signal("answered");
}

#endif
