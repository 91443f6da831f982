#include "tests/Support/Integration/IntegrationTest.h"

#include <string>
#include <vector>

#include <windows.h>

// The exception handler's life: its place among others, a second one, its end, and what it does when the OS fails it.

#if TORVANE_HOST_HALF
#include "tests/Support/Integration/ExceptionHost.h"
#include "tests/Support/TestThread.h"
#else
#include "tests/Support/Integration/ExceptionBridge.h"
#endif

namespace
{
/// What the OS's function fails with. No handle has this value.
constexpr DWORD creationError = 0x7FFFFFF0;
} // namespace

#if TORVANE_HOST_HALF

namespace
{
/// mov eax, [0x10]; ret
const std::vector<uint8_t> faultingCode = {0xA1, 0x10, 0x00, 0x00, 0x00, 0xC3};

/// Functions that fail for one thread of the test's; the Agent calls them in place of the OS's.
struct FailingCalls
{
    static inline decltype(&CreateEventW) createEvent;
    static inline decltype(&WaitForSingleObject) waitForSingleObject;
    static inline volatile DWORD threadId;
    static inline volatile LONG waits; ///< of that thread that could not end at once
    static inline bool waitsFirst;     ///< whether a wait fails only when it would have ended

    static HANDLE WINAPI FakeCreateEvent(SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL set,
                                         const wchar_t* name)
    {
        if (GetCurrentThreadId() != threadId)
        {
            return createEvent(attributes, manual, set, name);
        }
        SetLastError(creationError);
        return nullptr;
    }

    static DWORD WINAPI FakeWait(HANDLE handle, DWORD milliseconds)
    {
        if (GetCurrentThreadId() != threadId)
        {
            return waitForSingleObject(handle, milliseconds);
        }
        const DWORD result = waitForSingleObject(handle, 0);
        if (result == WAIT_OBJECT_0)
        {
            return result; // the queue has room
        }
        InterlockedIncrement(&waits);
        if (waitsFirst)
        {
            waitForSingleObject(handle, milliseconds);
        }
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
};

class ExceptionInstallHost : public ExceptionHost
{
protected:
    void ExpectTag(const std::string& message, const std::string& tag)
    {
        for (const LogRecord& record : ReadLog())
        {
            if (record.message == message)
            {
                EXPECT_EQ(tag, record.tag) << message;
            }
        }
    }
};

/// The handlers that the Agent adds, and those that it removes until that fails.
std::vector<void*> addedHandlers;
std::vector<void*> removedHandlers;

void* WINAPI NoteAdding(ULONG first, PVECTORED_EXCEPTION_HANDLER handler)
{
    addedHandlers.push_back(AddVectoredExceptionHandler(first, handler));
    return addedHandlers.back();
}

ULONG WINAPI NoteRemoval(void* handle)
{
    removedHandlers.push_back(handle);
    return RemoveVectoredExceptionHandler(handle);
}

uint32_t endedSearches = 0;

/// Lets a thread with one kind of exception continue where it is.
LONG CALLBACK EndSearch(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_INT_OVERFLOW)
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    ++endedSearches;
    return EXCEPTION_CONTINUE_EXECUTION;
}
} // namespace

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, Order0IsAfterTheOthers)
{
    void* handler = AddVectoredExceptionHandler(0, &EndSearch);
    ASSERT_TRUE(Start());
    RaiseException(EXCEPTION_INT_OVERFLOW, 0, 0, nullptr);
    EXPECT_EQ(1u, endedSearches);
    ExpectNoLine("EXCEPTION_");
    RemoveVectoredExceptionHandler(handler);
    EXPECT_FALSE(EndsByItself([] { RaiseException(EXCEPTION_INT_OVERFLOW, 0, 0, nullptr); }));
    EXPECT_EQ(1u, CountInLog("Received exception handler action 0"));
    EXPECT_EQ(1u, CountInLog("Installing exception handler with order 0"));
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, AnyOtherOrderIsBeforeTheOthers)
{
    AddVectoredExceptionHandler(1, &EndSearch);
    ASSERT_TRUE(Start());
    RaiseException(EXCEPTION_INT_OVERFLOW, 0, 0, nullptr);
    EXPECT_EQ(1u, endedSearches) << "The Agent lets it pass on.";
    EXPECT_EQ(1u, CountInLog("Received exception handler action 0"));
    EXPECT_EQ(1u, CountInLog("Installing exception handler with order 2147483648"));
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, ASecondOneIsInstalledBesideTheFirst)
{
    Library();
    ReplaceImport("AddVectoredExceptionHandler", &NoteAdding);
    ReplaceImport("RemoveVectoredExceptionHandler", &NoteRemoval);
    ASSERT_TRUE(Start());
    EXPECT_EQ(1u, CountInLog("Installing exception handler with order 1"));
    EXPECT_EQ(1u, CountInLog("Installing exception handler with order 0"));
    LastHandler handler;
    const CodePages code(faultingCode);
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(1u, CountInLog("Received exception handler action 0"));
    EXPECT_EQ(1u, CountInLog("Received exception handler action 4"));
    EXPECT_TRUE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(1u, CountInLog("Received exception handler action 2"));
    EXPECT_TRUE(Await("nothing came"));

    // The handle of the first is lost: it stays, and does nothing. The Agent stays loaded, so that this does no harm.
    Shutdown();
    ASSERT_EQ(2u, addedHandlers.size());
    EXPECT_EQ(std::vector<void*>(2, addedHandlers[1]), removedHandlers) << "once, and then there is none";
    const size_t records = ReadLog().size();
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(2u, handler.Count());
    EXPECT_EQ(records, ReadLog().size());
    EXPECT_NE(0u, RemoveVectoredExceptionHandler(addedHandlers[0])) << "It was still there.";
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, AfterTheShutdownAFaultTakesItsOrdinaryWay)
{
    ASSERT_TRUE(Start());
    LastHandler handler;
    const CodePages code(faultingCode);
    EXPECT_TRUE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(0u, handler.Count());
    Shutdown();
    const size_t before = ReadLog().size();
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(code.Start(), handler.Latest().record.ExceptionAddress);
    EXPECT_EQ(before, ReadLog().size());
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, BeforeItAFaultTakesItsOrdinaryWay)
{
    ConnectDefaultAgent();
    LastHandler handler;
    const CodePages code(faultingCode);
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    EXPECT_EQ(1u, handler.Count());
    Signal("faulted");
    ASSERT_TRUE(Await("nothing came"));
    ExpectNoLine("EXCEPTION_");
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, AFailedWaitPassesOnWhatNobodyHasDecided)
{
    ASSERT_TRUE(Start());
    FailingCalls::waitForSingleObject = ReplaceImport("WaitForSingleObject", &FailingCalls::FakeWait);
    LastHandler handler;
    const CodePages code(faultingCode);
    FailingCalls::threadId = GetCurrentThreadId();
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    FailingCalls::threadId = 0;
    EXPECT_EQ(1, FailingCalls::waits);
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(CodePages::lastError, handler.Latest().state.lastError);
    ExpectLogOrder({"Could not wait for event in exception handler", "Received exception handler action 0"});
    ExpectTag("Could not wait for event in exception handler", "ERR");
    EXPECT_EQ(1u, CountInLog("Could not wait for event in exception handler"));
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, AfterAFailedWaitAStoredDecisionCounts)
{
    ASSERT_TRUE(Start());
    FailingCalls::waitForSingleObject = ReplaceImport("WaitForSingleObject", &FailingCalls::FakeWait);
    FailingCalls::waitsFirst = true;
    const CodePages code(faultingCode);
    TestThread thread([&code] {
        FailingCalls::threadId = GetCurrentThreadId();
        code.Run();
        FailingCalls::threadId = 0;
    });
    ASSERT_TRUE(WaitUntil([] { return FailingCalls::waits == 1; }));
    Signal("waiting");
    EXPECT_TRUE(thread.WaitForEnd(testTimeout));
    ExpectLogOrder({"Could not wait for event in exception handler", "Received exception handler action 2"});
}

HOST_TEST_OF(ExceptionInstallHost, ExceptionInstall, WithoutAnEventItContinuesWithTheResultsSoFar)
{
    ASSERT_TRUE(Start());
    FailingCalls::createEvent = ReplaceImport("CreateEventW", &FailingCalls::FakeCreateEvent);
    LastHandler handler;
    const CodePages code(faultingCode);
    FailingCalls::threadId = GetCurrentThreadId();
    EXPECT_FALSE(EndsByItself([&code] { code.Run(); }));
    FailingCalls::threadId = 0;
    EXPECT_EQ(1u, handler.Count());
    EXPECT_EQ(CodePages::lastError, handler.Latest().state.lastError);
    ExpectLogOrder({
        "CreateEventW(Exception filter) failed.",
        "Cannot create event for exception filter",
        "Could not wait for event in exception handler",
        "Received exception handler action 0",
    });
    ExpectTag("Cannot create event for exception filter", "PNC");
    ASSERT_TRUE(Await("looked"));
}

#else

BRIDGE_SCENARIO_OF(UninstalledExceptionBridge, ExceptionInstall, Order0IsAfterTheOthers)
{
    ASSERT_TRUE(Install(0u));
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Answer(report, ActionContinueSearch);
    EXPECT_TRUE(NothingElseCame()) << "The first exception came to a handler before ours.";
}

BRIDGE_SCENARIO_OF(UninstalledExceptionBridge, ExceptionInstall, AnyOtherOrderIsBeforeTheOthers)
{
    ASSERT_TRUE(Install(0x80000000u));
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Answer(report, ActionContinueSearch);
}

BRIDGE_SCENARIO_OF(UninstalledExceptionBridge, ExceptionInstall, ASecondOneIsInstalledBesideTheFirst)
{
    ASSERT_TRUE(Install(0u, 1u));
    const ExceptionReport first = AwaitException();
    ASSERT_TRUE(first);
    Answer(first, ActionIgnore);
    const ExceptionReport second = AwaitException();
    ASSERT_TRUE(second);
    EXPECT_EQ(0, memcmp(&first.record, &second.record, sizeof(first.record)));
    Answer(second, ActionContinueSearch);
    const ExceptionReport third = AwaitException();
    ASSERT_TRUE(third);
    Answer(third, ActionSkipInstruction);
    EXPECT_TRUE(NothingElseCame()) << "Skipped by the one, it didn't come to the other.";
    Signal("nothing came");
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionInstall, AfterTheShutdownAFaultTakesItsOrdinaryWay)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    Answer(report, ActionSkipInstruction);
}

BRIDGE_SCENARIO_OF(UninstalledExceptionBridge, ExceptionInstall, BeforeItAFaultTakesItsOrdinaryWay)
{
    ASSERT_TRUE(Await("faulted"));
    EXPECT_TRUE(NothingElseCame());
    Signal("nothing came");
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionInstall, AFailedWaitPassesOnWhatNobodyHasDecided)
{
    ASSERT_TRUE(AwaitException()); // and nobody answers: its frame has ended
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionInstall, AfterAFailedWaitAStoredDecisionCounts)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    ASSERT_TRUE(Await("waiting"));
    Answer(report, ActionSkipInstruction);
}

BRIDGE_SCENARIO_OF(ExceptionBridge, ExceptionInstall, WithoutAnEventItContinuesWithTheResultsSoFar)
{
    const ExceptionReport report = AwaitException();
    ASSERT_TRUE(report);
    EXPECT_EQ(creationError, report.blob->event);
    Signal("looked");
}

#endif
