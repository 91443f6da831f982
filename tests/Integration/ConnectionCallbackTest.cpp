#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Connection callbacks: from many threads, before, during and after the outcome.

#if TORVANE_HOST_HALF

namespace
{
const AgentLibrary* agentLibrary; ///< for callbacks, which have no test

struct Report
{
    volatile long count = 0;
    volatile long status = -1;
    volatile DWORD threadId = 0;
};

volatile long inCallback;
volatile long overlapping;
volatile long allReports;

/// Two callbacks at a time would be seen: each runs for the time of a switch between threads.
void TVN_CALL TakeReport(void* context, TvnConnectionStatus status)
{
    if (InterlockedIncrement(&inCallback) != 1)
    {
        InterlockedIncrement(&overlapping);
    }
    Report& report = *static_cast<Report*>(context);
    InterlockedIncrement(&report.count);
    report.status = status;
    report.threadId = GetCurrentThreadId();
    SwitchToThread();
    InterlockedDecrement(&inCallback);
    InterlockedIncrement(&allReports);
}

constexpr size_t threadCount = 8;

struct Caller
{
    Report report;
    volatile long calls = 0;
    long callsAtLeast = 0;
    volatile long* stop = nullptr;
    DWORD threadId = 0;
    HANDLE thread = nullptr;
};

/// Registers repeatedly until it is stopped, and once more then.
DWORD WINAPI RegisterUntilStopped(void* context)
{
    Caller& caller = *static_cast<Caller*>(context);
    caller.threadId = GetCurrentThreadId();
    bool last = false;
    do
    {
        last = *caller.stop != 0 && caller.calls >= caller.callsAtLeast;
        if (last)
        {
            InterlockedExchange(&caller.report.count, 0);
        }
        agentLibrary->TvnOnConnection(&caller.report, &TakeReport);
        InterlockedIncrement(&caller.calls);
    }
    while (!last);
    return 0;
}

DWORD WINAPI RegisterOnce(void* context)
{
    Caller& caller = *static_cast<Caller*>(context);
    caller.threadId = GetCurrentThreadId();
    agentLibrary->TvnOnConnection(&caller.report, &TakeReport);
    InterlockedIncrement(&caller.calls);
    return 0;
}

void JoinAll(Caller (&callers)[threadCount])
{
    for (Caller& caller : callers)
    {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(caller.thread, testTimeout));
        CloseHandle(caller.thread);
    }
}

class ConnectionCallbackTest : public HostTest
{
protected:
    TvnDefaultAgent& Start()
    {
        agentLibrary = &Library();
        return StartDefaultAgent();
    }
};
} // namespace

#define CONNECTION_CALLBACK(Name) HOST_TEST_OF(ConnectionCallbackTest, ConnectionCallback, Name)

CONNECTION_CALLBACK(OfTheLastRegistrationBeforeTheOutcomeIsTheOnlyOneCalled)
{
    UseScenario("ConnectionCallback.WaitsForRegistrations");
    Start();
    Report first;
    Report last;
    Library().TvnOnConnection(&first, &TakeReport);
    Library().TvnOnConnection(&last, &TakeReport);
    Signal("registered");
    EXPECT_TRUE(WaitUntil([&] { return last.count != 0; }));
    EXPECT_EQ(ConnectionSucceeded, last.status);
    EXPECT_EQ(1, last.count);
    EXPECT_EQ(0, first.count);
}

CONNECTION_CALLBACK(OfOneOfManyThreadsIsCalledWhenAllRegisterBeforeTheOutcome)
{
    UseScenario("ConnectionCallback.WaitsForRegistrations");
    Start();
    static Caller callers[threadCount];
    for (Caller& caller : callers)
    {
        caller.thread = CreateThread(nullptr, 0, &RegisterOnce, &caller, 0, nullptr);
    }
    JoinAll(callers);
    EXPECT_EQ(0, allReports);
    Signal("registered");
    EXPECT_TRUE(Await("connected"));
    EXPECT_EQ(1, allReports);
}

CONNECTION_CALLBACK(OfEachOfManyThreadsIsCalledOnceAfterTheOutcome)
{
    UseDefaultBridge();
    Start();
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    static Caller callers[threadCount];
    for (Caller& caller : callers)
    {
        caller.thread = CreateThread(nullptr, 0, &RegisterOnce, &caller, 0, nullptr);
    }
    JoinAll(callers);
    for (const Caller& caller : callers)
    {
        EXPECT_EQ(1, caller.report.count);
        EXPECT_EQ(ConnectionSucceeded, caller.report.status);
        EXPECT_EQ(caller.threadId, caller.report.threadId);
    }
    EXPECT_EQ(0, overlapping);
}

CONNECTION_CALLBACK(OfManyThreadsGetsTheSameStatusWhateverTheMoment)
{
    UseScenario("ConnectionCallback.WaitsForRegistrations");
    Start();
    volatile long stop = 0;
    static Caller callers[threadCount];
    for (Caller& caller : callers)
    {
        caller.stop = &stop;
        caller.callsAtLeast = 20;
        caller.thread = CreateThread(nullptr, 0, &RegisterUntilStopped, &caller, 0, nullptr);
    }
    EXPECT_TRUE(WaitUntil([&] {
        for (const Caller& caller : callers)
        {
            if (caller.calls == 0)
            {
                return false;
            }
        }
        return true;
    }));
    EXPECT_EQ(0, allReports);
    Signal("registered");
    EXPECT_TRUE(WaitUntil([&] { return allReports != 0; }));
    InterlockedExchange(&stop, 1);
    JoinAll(callers);
    for (const Caller& caller : callers)
    {
        EXPECT_EQ(1, caller.report.count) << "the last registration's";
        EXPECT_EQ(ConnectionSucceeded, caller.report.status);
        EXPECT_EQ(caller.threadId, caller.report.threadId);
    }
    EXPECT_EQ(0, overlapping) << "A callback is called with the lock held.";
}

namespace
{
Report inner;
volatile long innerBeforeOuterEnded;

void TVN_CALL RegisterAnother(void* context, TvnConnectionStatus status)
{
    agentLibrary->TvnOnConnection(&inner, &TakeReport);
    innerBeforeOuterEnded = inner.count;
    TakeReport(context, status);
}
} // namespace

CONNECTION_CALLBACK(CanRegisterAnotherWhenItIsReportedTo)
{
    UseScenario("ConnectionCallback.WaitsForRegistrations");
    Start();
    Report outer;
    Library().TvnOnConnection(&outer, &RegisterAnother);
    Signal("registered");
    EXPECT_TRUE(WaitUntil([&] { return outer.count != 0; }));
    EXPECT_EQ(1, innerBeforeOuterEnded) << "The status is known by then.";
    EXPECT_EQ(ConnectionSucceeded, inner.status);
    EXPECT_EQ(outer.threadId, inner.threadId);
    EXPECT_NE(GetCurrentThreadId(), outer.threadId);
}

CONNECTION_CALLBACK(CanRegisterAnotherAfterTheOutcome)
{
    UseDefaultBridge();
    Start();
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    Report outer;
    Library().TvnOnConnection(&outer, &RegisterAnother);
    EXPECT_EQ(1, outer.count);
    EXPECT_EQ(1, inner.count);
    EXPECT_EQ(1, innerBeforeOuterEnded);
    EXPECT_EQ(GetCurrentThreadId(), inner.threadId);
}

namespace
{
void TVN_CALL CallTheAgent(void* context, TvnConnectionStatus status)
{
    agentLibrary->TvnLogMessageANSI("from the callback");
    agentLibrary->TvnSetIntPreferences(1, static_cast<int32_t>(status));
    TakeReport(context, status);
}
} // namespace

CONNECTION_CALLBACK(CanQueueBlobs)
{
    Start();
    Report report;
    Library().TvnOnConnection(&report, &CallTheAgent);
    Signal("registered");
    EXPECT_TRUE(WaitUntil([&] { return report.count != 0; }));
    EXPECT_TRUE(Await("taken"));
}

namespace
{
struct Gate
{
    volatile long entered = 0;
    HANDLE open = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

void TVN_CALL WaitAtGate(void* context, TvnConnectionStatus)
{
    Gate& gate = *static_cast<Gate*>(context);
    InterlockedIncrement(&gate.entered);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(gate.open, testTimeout))
        << "The test hasn't opened the gate.";
}
} // namespace

CONNECTION_CALLBACK(ThatBlocksDelaysCommandsAndOtherRegistrations)
{
    Start();
    Gate gate;
    Library().TvnOnConnection(&gate, &WaitAtGate);
    Signal("registered");
    EXPECT_TRUE(WaitUntil([&] { return gate.entered != 0; }));
    static Caller caller;
    caller.thread = CreateThread(nullptr, 0, &RegisterOnce, &caller, 0, nullptr);
    EXPECT_TRUE(WaitUntil([&] { return CountInLog("API TvnOnConnection") == 2; }));
    EXPECT_TRUE(Await("nothing executed"));
    EXPECT_EQ(0, caller.calls) << "The lock is held.";
    SetEvent(gate.open);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(caller.thread, testTimeout));
    EXPECT_EQ(1, caller.report.count);
    EXPECT_EQ(ConnectionSucceeded, caller.report.status);
    EXPECT_EQ(caller.threadId, caller.report.threadId);
    Signal("gate opened");
    EXPECT_TRUE(Await("executed"));
    EXPECT_EQ(1, gate.entered);
}

CONNECTION_CALLBACK(CanBeNullBeforeTheOutcome)
{
    UseScenario("ConnectionCallback.WaitsForRegistrations");
    Start();
    Report replaced;
    Library().TvnOnConnection(&replaced, &TakeReport);
    Library().TvnOnConnection(nullptr, nullptr);
    Signal("registered");
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    EXPECT_TRUE(Await("connected"));
    EXPECT_EQ(0, replaced.count);
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection()) << "It can still be asked for.";
}

namespace
{
volatile long callsOfNull;
void* contextOfNull;
uint32_t statusOfNull;

/// Lets a call of a null function return to its caller.
LONG CALLBACK ReturnFromNull(EXCEPTION_POINTERS* exception)
{
    CONTEXT& context = *exception->ContextRecord;
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || context.Eip != 0)
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const DWORD* stack = reinterpret_cast<const DWORD*>(context.Esp);
    ++callsOfNull;
    contextOfNull = reinterpret_cast<void*>(stack[1]);
    statusOfNull = stack[2];
    context.Eip = stack[0];
    context.Esp += sizeof(DWORD);
    return EXCEPTION_CONTINUE_EXECUTION;
}
} // namespace

CONNECTION_CALLBACK(IsCalledAfterTheOutcomeEvenIfItIsNull)
{
    UseDefaultBridge();
    Start();
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    void* handler = AddVectoredExceptionHandler(1, &ReturnFromNull);
    Library().TvnOnConnection(&contextOfNull, nullptr);
    RemoveVectoredExceptionHandler(handler);
    EXPECT_EQ(1, callsOfNull);
    EXPECT_EQ(&contextOfNull, contextOfNull);
    EXPECT_EQ(uint32_t(ConnectionSucceeded), statusOfNull);
}

CONNECTION_CALLBACK(GetsAFailureAtOnceOnTheCallingThread)
{
    RemoveBridge();
    Start();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    Report report;
    Library().TvnOnConnection(&report, &TakeReport);
    EXPECT_EQ(1, report.count);
    EXPECT_EQ(ConnectionFailed, report.status);
    EXPECT_EQ(GetCurrentThreadId(), report.threadId);
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, ConnectionCallback, WaitsForRegistrations)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(Await("registered"));
    ASSERT_TRUE(link.ExchangeVersion(testTimeout));
    EXPECT_TRUE(Fence());
    Signal("connected");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, ConnectionCallback, CanQueueBlobs)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(Await("registered"));
    ASSERT_TRUE(link.ExchangeVersion(testTimeout));
    const auto log = link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow);
    ASSERT_TRUE(log);
    EXPECT_EQ("from the callback", log.AnsiString(log->text));
    const auto preference = WaitFor<SetIntPreferencesBlob>();
    ASSERT_TRUE(preference);
    EXPECT_EQ(0, preference->value);
    Signal("taken");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, ConnectionCallback, ThatBlocksDelaysCommandsAndOtherRegistrations)
{
    constexpr uint32_t longerLook = 200; // milliseconds
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(Await("registered"));
    ASSERT_TRUE(link.ExchangeVersion(testTimeout));
    EXPECT_TRUE(SendEchoRequest(link, 5));
    EXPECT_FALSE(link.WaitFor<EchoReplyBlob>(longerLook)) << "The callback holds the receiver.";
    Signal("nothing executed");
    ASSERT_TRUE(Await("gate opened"));
    EXPECT_TRUE(WaitFor<EchoReplyBlob>());
    Signal("executed");
    StayUntilAgentGoes();
}

#endif
