#include "tests/Support/Integration/IntegrationTest.h"

#include <string>
#include <vector>

#include <windows.h>

// What else can happen while a thread waits for the decision about its exception.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#include "tests/Support/Integration/HandleTrace.h"
#include "tests/Support/TestThread.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
constexpr uint32_t dialogs = 1000;
constexpr uint32_t overflowActions[] = {0, 4, 7, 2, 1};
} // namespace

#if TORVANE_HOST_HALF

namespace
{
constexpr uint32_t writtenSize = 5000; ///< of a Blob, at least

/// mov eax, [0x10]; ret
const std::vector<uint8_t> faultingCode = {0xA1, 0x10, 0x00, 0x00, 0x00, 0xC3};

/// Makes each exception at an address a stack overflow, for all handlers after it. The thread has all of its stack.
class OverflowDisguise
{
public:
    explicit OverflowDisguise(const void* wanted)
        : handle(AddVectoredExceptionHandler(1, &Change))
    {
        address = wanted;
    }

    ~OverflowDisguise()
    {
        RemoveVectoredExceptionHandler(handle);
    }

    OverflowDisguise(const OverflowDisguise&) = delete;
    OverflowDisguise& operator=(const OverflowDisguise&) = delete;

private:
    static LONG CALLBACK Change(EXCEPTION_POINTERS* exception)
    {
        if (exception->ExceptionRecord->ExceptionAddress == address)
        {
            exception->ExceptionRecord->ExceptionCode = static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static inline const void* address;
    void* handle;
};

/// What the Agent's calls do on one thread, once, before the OS does what it should.
struct Trap
{
    static inline volatile DWORD threadId; ///< 0 for none
    static inline const CodePages* code;   ///< which faults
    static inline volatile bool failsWaits;

    static bool IsDue(DWORD milliseconds)
    {
        return GetCurrentThreadId() == threadId && milliseconds == INFINITE;
    }

    static DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds)
    {
        if (IsDue(milliseconds) && WaitForSingleObject(handle, 0) != WAIT_OBJECT_0)
        {
            threadId = 0;
            if (failsWaits)
            {
                return WAIT_FAILED;
            }
            code->Run();
        }
        return WaitForSingleObject(handle, milliseconds);
    }

    static BOOL WINAPI Write(HANDLE file, const void* bytes, DWORD size, DWORD* count, OVERLAPPED* overlapped)
    {
        if (size >= writtenSize)
        {
            code->Run();
        }
        return WriteFile(file, bytes, size, count, overlapped);
    }
};

/// An entry point that returns when it is allowed to.
struct GatedEntryPoint
{
    static inline HANDLE entered;
    static inline HANDLE leave;

    static BOOL WINAPI Run(void*, DWORD, void*)
    {
        SetEvent(entered);
        WaitForSingleObject(leave, testTimeout);
        return TRUE;
    }
};

/// The handlers that the Agent adds and removes.
struct HandlerCalls
{
    static inline void* added;
    static inline std::vector<void*> removed;
    static inline ULONG furtherSuccesses;

    static void* WINAPI Add(ULONG first, PVECTORED_EXCEPTION_HANDLER handler)
    {
        return added = AddVectoredExceptionHandler(first, handler);
    }

    static ULONG WINAPI Remove(void* handle)
    {
        removed.push_back(handle);
        const ULONG result = RemoveVectoredExceptionHandler(handle);
        return result == 0 && furtherSuccesses-- != 0 ? 1 : result;
    }
};

class ExceptionDialogHost : public ExceptionHost
{
protected:
    /// The messages since the log had that many records.
    std::vector<std::string> MessagesSince(size_t count) const
    {
        std::vector<std::string> messages;
        const std::vector<LogRecord> records = ReadLog();
        for (size_t i = count; i < records.size(); ++i)
        {
            messages.push_back(records[i].message);
        }
        return messages;
    }

    const CodePages code{faultingCode};
};
} // namespace

#define EXCEPTION_DIALOG(Name) HOST_TEST_OF(ExceptionDialogHost, ExceptionDialog, Name)

EXCEPTION_DIALOG(LeavesNoHandleOpen)
{
    const HandleTrace* trace = new HandleTrace(Library().Module()); // for the rest of the process
    ASSERT_TRUE(Start());
    ASSERT_TRUE(EndsByItself([this] { code.Run(); }));
    const std::vector<std::string> before = trace->OpenHandles();
    for (uint32_t i = 1; i < dialogs; ++i)
    {
        ASSERT_TRUE(EndsByItself([this] { code.Run(); }));
    }
    EXPECT_EQ(dialogs, CountInLog("Received exception handler action 2"));
    EXPECT_EQ(before.size(), trace->OpenHandles().size());
    EXPECT_EQ(0u, trace->FailedCloses());
}

EXCEPTION_DIALOG(AboutAStackOverflowAllowsEachDecisionAndLogsNothing)
{
    ASSERT_TRUE(Start());
    const OverflowDisguise disguise(code.Start());
    LastHandler handler;
    const size_t before = ReadLog().size();
    for (const uint32_t action : overflowActions)
    {
        const size_t passedOn = handler.Count();
        const bool continues = action == 1 || action == 2;
        EXPECT_EQ(continues, EndsByItself([this] { code.Run(); })) << action;
        EXPECT_EQ(passedOn + (continues ? 0 : 1), handler.Count()) << action;
    }
    EXPECT_EQ(static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW), handler.Latest().record.ExceptionCode);
    EXPECT_NE(faultingCode[0], *code.Start()) << "replaced by the last decision";
    ASSERT_TRUE(Await("answered"));
    EXPECT_EQ(
        std::vector<std::string>(std::size(overflowActions), "Processing Blob::HandleExceptionWindowsResult"),
        MessagesSince(before));
}

EXCEPTION_DIALOG(AboutAStackOverflowEndsSilentlyWithAFailedWait)
{
    ASSERT_TRUE(Start());
    ReplaceImport("WaitForSingleObject", &Trap::Wait);
    const OverflowDisguise disguise(code.Start());
    LastHandler handler;
    const size_t before = ReadLog().size();
    Trap::failsWaits = true;
    Trap::threadId = GetCurrentThreadId();
    EXPECT_FALSE(EndsByItself([this] { code.Run(); }));
    EXPECT_EQ(0u, Trap::threadId) << "It has waited.";
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(std::vector<std::string>{}, MessagesSince(before));
    ASSERT_TRUE(Await("checked"));
}

EXCEPTION_DIALOG(CanHaveAnotherOfItsThreadWithin)
{
    ASSERT_TRUE(Start());
    ReplaceImport("WaitForSingleObject", &Trap::Wait);
    const CodePages inner(faultingCode);
    Publish("outer", code.Start());
    Publish("inner", inner.Start());
    Trap::code = &inner;
    const FirstHandler before(code.Start());
    TestThread thread([this] {
        Trap::threadId = GetCurrentThreadId();
        code.Run();
    });
    ASSERT_TRUE(Await("inner dialog"));
    TestThread other([this] { code.Run(); });
    ASSERT_TRUE(WaitUntil([] { return FirstHandler::Count() == 2; }));
    Signal("another thread has faulted");
    EXPECT_TRUE(thread.WaitForEnd());
    EXPECT_TRUE(other.WaitForEnd());
    EXPECT_EQ(3u, CountInLog("Received exception handler action 2"));
    EXPECT_TRUE(Await("checked"));
}

EXCEPTION_DIALOG(OfTheReceiverWaitsForAnAnswerThatNobodyReads)
{
    ExpectNoBridge(); // it stays, as its Agent does
    LeaveAgentRunning();
    ASSERT_TRUE(Start());
    EXPECT_TRUE(Await("answered"));
    Library().TvnLogMessageANSI("The sender continues.");
    EXPECT_TRUE(Await("checked"));
    ExpectLogOrder({"Processing Blob::ReadMemory",
                    "Select an action in the Torvane Broker exception handler dialog to continue execution"});
}

EXCEPTION_DIALOG(OfTheSenderIsReportedToNobody)
{
    ExpectNoBridge(); // it stays, as its Agent does
    LeaveAgentRunning();
    Library();
    Trap::code = &code;
    ReplaceImport("WriteFile", &Trap::Write);
    ASSERT_TRUE(Start());
    Library().TvnLogMessageANSI(std::string(writtenSize, 't').c_str());
    ASSERT_TRUE(
        WaitForLog("Select an action in the Torvane Broker exception handler dialog to continue execution"));
    Signal("faulted");
    EXPECT_TRUE(Await("checked"));
    EXPECT_TRUE(WaitForLog("Processing Blob::Synchronize")) << "The receiver continues.";
    ExpectNoLine("Received exception handler action");
}

EXCEPTION_DIALOG(AfterARefusedBlobIsReportedAndNeverEnds)
{
    ExpectNoBridge(); // it stays, as its Agent does
    LeaveAgentRunning();
    ASSERT_TRUE(Start());
    ASSERT_TRUE(WaitForLog("Unknown blob type 9"));
    static TestThread thread([this] { code.Run(); });
    EXPECT_TRUE(Await("answered"));
    EXPECT_FALSE(thread.WaitForEnd(quietPeriod));
    thread.Abandon();
    ExpectNoLine("Received exception handler action");
}

EXCEPTION_DIALOG(IsWaitedForByAFaultThatWillBeDeclined)
{
    ASSERT_TRUE(Start());
    GatedEntryPoint::entered = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    GatedEntryPoint::leave = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const CodePages entryPoint({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, PAGE_EXECUTE_READWRITE);
    Publish("entry point", entryPoint.Start());
    Publish("function", reinterpret_cast<const void*>(&GatedEntryPoint::Run));
    const FirstHandler before(code.Start());
    TestThread first([this] { EXPECT_FALSE(EndsByItself([this] { code.Run(); })); });
    const uint64_t event = AwaitNumber("event");
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(GatedEntryPoint::entered, testTimeout));
    TestThread second([this] { EXPECT_FALSE(EndsByItself([this] { code.Run(); })); });
    ASSERT_TRUE(WaitUntil([] { return FirstHandler::Count() == 2; }));
    EXPECT_FALSE(second.WaitForEnd(quietPeriod)) << "It takes the lock first.";
    SetEvent(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(event))); // the receiver is in the entry point
    EXPECT_TRUE(first.WaitForEnd());
    EXPECT_TRUE(second.WaitForEnd());
    SetEvent(GatedEntryPoint::leave);
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(1u, CountInLog("Received exception handler action 0"));
}

EXCEPTION_DIALOG(ComesNoMoreWhenTheHandlerIsRemovedAsOftenAsItCanBe)
{
    Library();
    ReplaceImport("AddVectoredExceptionHandler", &HandlerCalls::Add);
    ReplaceImport("RemoveVectoredExceptionHandler", &HandlerCalls::Remove);
    HandlerCalls::furtherSuccesses = 2;
    ASSERT_TRUE(Start());
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(std::vector<void*>{}, HandlerCalls::removed);
    Shutdown();
    ASSERT_NE(nullptr, HandlerCalls::added);
    EXPECT_EQ(std::vector<void*>(4, HandlerCalls::added), HandlerCalls::removed);
}

#else

#define EXCEPTION_DIALOG_BRIDGE(Name) BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionDialog, Name)

EXCEPTION_DIALOG_BRIDGE(LeavesNoHandleOpen)
{
    for (uint32_t i = 0; i < dialogs; ++i)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        Answer(report, ActionSkipInstruction);
    }
}

EXCEPTION_DIALOG_BRIDGE(AboutAStackOverflowAllowsEachDecisionAndLogsNothing)
{
    for (const uint32_t action : overflowActions)
    {
        const ExceptionReport report = AwaitException();
        ASSERT_TRUE(report);
        EXPECT_EQ(static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW), report.record.ExceptionCode);
        Answer(report, action);
    }
    Signal("answered");
}

EXCEPTION_DIALOG_BRIDGE(AboutAStackOverflowEndsSilentlyWithAFailedWait)
{
    EXPECT_TRUE(AwaitException()); // and nobody answers: its frame has ended
}

EXCEPTION_DIALOG_BRIDGE(CanHaveAnotherOfItsThreadWithin)
{
    const ExceptionReport outer = AwaitException();
    ASSERT_TRUE(outer);
    EXPECT_EQ(AwaitNumber("outer"), outer.record.ExceptionAddress);
    const ExceptionReport inner = AwaitException();
    ASSERT_TRUE(inner);
    EXPECT_EQ(AwaitNumber("inner"), inner.record.ExceptionAddress);
    EXPECT_EQ(outer.blob->threadId, inner.blob->threadId);
    EXPECT_NE(outer.blob->event, inner.blob->event);
    EXPECT_LT(inner.context.Esp, outer.context.Esp);
    Signal("inner dialog");
    ASSERT_TRUE(Await("another thread has faulted"));
    Answer(inner, ActionSkipInstruction);
    EXPECT_TRUE(NothingElseCame()) << "The outer one has the lock.";
    Answer(outer, ActionSkipInstruction);
    const ExceptionReport last = AwaitException();
    ASSERT_TRUE(last);
    EXPECT_NE(outer.blob->threadId, last.blob->threadId);
    Answer(last, ActionSkipInstruction);
}

EXCEPTION_DIALOG_BRIDGE(OfTheReceiverWaitsForAnAnswerThatNobodyReads)
{
    ASSERT_TRUE(SendReadMemory(link, 4, {0x10000 - 8}, 1));
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    EXPECT_EQ(process->receiverThreadId, report.blob->threadId);
    EXPECT_EQ(0x10000u - 8, report.record.ExceptionInformation[1]);
    Answer(report, ActionSkipInstruction);
    ASSERT_TRUE(SendEchoRequest(link, 1));
    Signal("answered");
    const Received<LogBlob> log(Receive());
    ASSERT_TRUE(log);
    EXPECT_EQ("The sender continues.", log.AnsiString(log->text));
    EXPECT_FALSE(link.Receive(quietPeriod)) << "The echo isn't answered.";
    Signal("checked");
    ExitBeforeAgent();
}

EXCEPTION_DIALOG_BRIDGE(OfTheSenderIsReportedToNobody)
{
    ASSERT_TRUE(Await("faulted"));
    ASSERT_TRUE(SendSynchronize(link));
    EXPECT_FALSE(link.Receive(quietPeriod));
    Signal("checked");
    ExitBeforeAgent();
}

EXCEPTION_DIALOG_BRIDGE(AfterARefusedBlobIsReportedAndNeverEnds)
{
    ASSERT_TRUE(link.Send(MakeBlob(static_cast<BlobType>(9), nullptr, 0)));
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Answer(report, ActionSkipInstruction);
    Signal("answered");
    ExitBeforeAgent();
}

EXCEPTION_DIALOG_BRIDGE(IsWaitedForByAFaultThatWillBeDeclined)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    const AddressSlot address = AwaitNumber("entry point");
    const uint32_t distance = static_cast<uint32_t>(AwaitNumber("function") - (address + 5));
    EntryPointCode jump = {{0xE9, 0, 0, 0, 0, 0x90}};
    memcpy(jump.bytes + 1, &distance, sizeof(distance));
    EXPECT_TRUE(SendCallEntryPoint(link, address, 0, jump, {{1, 2, 3, 4, 5, 6}}));
    Publish("event", report.blob->event);
    EXPECT_TRUE(NothingElseCame()) << "The other one was declined.";
}

EXCEPTION_DIALOG_BRIDGE(ComesNoMoreWhenTheHandlerIsRemovedAsOftenAsItCanBe)
{
    EXPECT_TRUE(Fence());
}

#endif
