#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The functions of the Bridge kit that do what every Bridge does: what they refuse, and what the host is like afterwards.

#if TORVANE_HOST_HALF

#include "tests/Support/Modules.h"
#include "tests/Support/TestThread.h"

extern "C"
{
int NumberOne();
int NumberTwo();
int OtherOne();
int OtherTwo();
void Looping();
void Stuck();
volatile uint32_t isLooping = 1;
extern uint8_t stuckLoop[];
}

// Each begins with as many bytes as a jump has: one instruction, three of which two take a while, or a loop without an end.
asm(R"(
    .balign 16
    .globl _NumberOne
_NumberOne:
    movl $1, %eax
    ret
    .balign 16
    .globl _NumberTwo
_NumberTwo:
    movl $2, %eax
    ret
    .balign 16
    .globl _OtherOne
_OtherOne:
    movl $10, %eax
    ret
    .balign 16
    .globl _OtherTwo
_OtherTwo:
    movl $20, %eax
    ret
    .balign 16
    .globl _Looping
_Looping:
    nop
    rdtsc
    rdtsc
    ret
    .balign 16
    .globl _Stuck
_Stuck:
    nop
    .globl _stuckLoop
_stuckLoop:
    jmp _stuckLoop
    ret
    .balign 16
)");

namespace
{
class KitHost : public HostTest
{
protected:
    void PublishFunctions()
    {
        Publish("one", reinterpret_cast<const void*>(&NumberOne));
        Publish("two", reinterpret_cast<const void*>(&NumberTwo));
        Publish("other one", reinterpret_cast<const void*>(&OtherOne));
        Publish("other two", reinterpret_cast<const void*>(&OtherTwo));
        Publish("looping function", reinterpret_cast<const void*>(&Looping));
        Publish("stuck function", reinterpret_cast<const void*>(&Stuck));
    }

    void PublishPatch()
    {
        // The kit changes the file of a patch.
        const std::wstring path =
            ExecutableFolder() + L"\\images\\KitPatch." + std::to_wstring(GetCurrentProcessId()) + L".dll";
        ASSERT_TRUE(CopyFileW(ImagePath(L"KitPatch").c_str(), path.c_str(), FALSE));
        PublishText("patch", path);
        patch = path;
    }

    void ExpectPatchInPlace()
    {
        EXPECT_EQ(100, NumberOne());
        const HMODULE module = GetModuleHandleW(patch.c_str());
        ASSERT_NE(nullptr, module);
        EXPECT_EQ(1u, *FindExport<uint32_t*>(module, "entries"));
        ExpectNoErrorsInLog();
    }

    void TearDown() override
    {
        HostTest::TearDown();
        if (const HMODULE module = GetModuleHandleW(patch.c_str()))
        {
            FreeLibrary(module); // nothing calls the function any more that is routed to it
        }
        DeleteFileW(patch.c_str());
    }

    std::wstring patch;
};
} // namespace

#define KIT_HOST(Name) HOST_TEST_OF(KitHost, BridgeKit, Name)

KIT_HOST(RoutesFunctionsAndTakesThemBack)
{
    PublishFunctions();
    ConnectDefaultAgent();
    ASSERT_TRUE(Await("routed"));
    EXPECT_EQ(10, NumberOne());
    EXPECT_EQ(20, NumberTwo());
    Signal("called");
    ASSERT_TRUE(Await("undone"));
    EXPECT_EQ(1, NumberOne());
    EXPECT_EQ(2, NumberTwo());
    ExpectNoErrorsInLog();
}

KIT_HOST(RefusesRoutesThatWouldEndTheHost)
{
    PublishFunctions();
    ConnectDefaultAgent();
    ASSERT_TRUE(Await("refused"));
    EXPECT_EQ(1, NumberOne());
    EXPECT_EQ(2, NumberTwo());
    EXPECT_EQ(0u, CountInLog("Processing Blob::WriteMemory"));
}

KIT_HOST(RoutesAFunctionThatAThreadIsIn)
{
    PublishFunctions();
    ConnectDefaultAgent();
    TestThread thread([] {
        while (isLooping != 0)
        {
            Looping();
        }
    });
    Signal("looping");
    EXPECT_TRUE(Await("routed"));
    isLooping = 0;
    EXPECT_TRUE(thread.WaitForEnd());
}

KIT_HOST(RefusesARouteWhileAThreadStaysInside)
{
    PublishFunctions();
    ConnectDefaultAgent();
    TestThread thread(&Stuck);
    Signal("stuck");
    EXPECT_TRUE(Await("refused"));
    DWORD protection = 0;
    ASSERT_TRUE(VirtualProtect(stuckLoop, 2, PAGE_EXECUTE_READWRITE, &protection));
    memset(stuckLoop, 0x90, 2);
    EXPECT_TRUE(thread.WaitForEnd());
    EXPECT_EQ(0u, CountInLog("Processing Blob::WriteMemory"));
}

KIT_HOST(ReportsAtOnceWhyALoadHasFailed)
{
    PublishText("missing", ImagePath(L"no such image"));
    PublishText("imports", ImagePath(L"ImportsAbsent"));
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("reported"));
}

KIT_HOST(ReadsMemoryAndRefusesWhatCannotBeRead)
{
    static uint32_t numbers[] = {1, 2, 3};
    Publish("numbers", numbers);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("read"));
}

KIT_HOST(ReloadsADefaultAgent)
{
    PublishFunctions();
    PublishPatch();
    ConnectDefaultAgent();
    ASSERT_TRUE(Await("reloaded"));
    ExpectPatchInPlace();
}

KIT_HOST(ReloadsASynchronizedAgentBeforeTheLoad)
{
    PublishFunctions();
    PublishPatch();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    agent.TvnReload(WaitUntilFinished);
    ExpectPatchInPlace();
    EXPECT_TRUE(Await("reloaded"));
}

KIT_HOST(ReloadsASynchronizedAgentBeforeTheCompilation)
{
    PublishFunctions();
    PublishPatch();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeCompile); }));
    agent.TvnReload(WaitUntilFinished);
    ExpectPatchInPlace();
    EXPECT_TRUE(Await("reloaded"));
}

KIT_HOST(FinishesAReloadThatFails)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeCompile); }));
    agent.TvnReload(WaitUntilFinished);
    EXPECT_TRUE(Await("reported"));
}

KIT_HOST(RefusesToLoadWhileASynchronizedHostIsSuspended)
{
    PublishPatch();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] {
        agent.TvnWantsReload(SyncBeforeLoad);
        return Await("granted", 0);
    }));
    ASSERT_TRUE(Await("refused"));
    EXPECT_EQ(0u, CountInLog("Processing Blob::LoadPatchWindows"));
}

KIT_HOST(ServesExceptionsWhileItWaits)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    ASSERT_TRUE(Await("installed"));
    static volatile uint32_t survived = 0;
    TestThread thread([] {
        for (uint32_t i = 0; i < 3; ++i)
        {
            *reinterpret_cast<volatile uint32_t*>(uintptr_t{16}) = i; // NOLINT(performance-no-int-to-ptr)
            survived = survived + 1;
        }
    });
    EXPECT_TRUE(thread.WaitForEnd());
    EXPECT_EQ(3u, survived);
    agent.TvnScheduleReload();
    EXPECT_TRUE(Await("waited"));
}

KIT_HOST(RunsOneRequestAfterTheOther)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnScheduleReload();
    agent.TvnScheduleReload();
    agent.TvnScheduleReload();
    EXPECT_TRUE(Await("three served"));
}

KIT_HOST(SaysWhyThreadsCannotBeSuspended)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("said"));
}

#else

namespace
{
class KitBridge : public ConnectedBridgeTest
{
protected:
    void SetUp() override
    {
        ConnectedBridgeTest::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        session = std::make_unique<Session>(link, *agent, *process);
    }

    void TearDown() override
    {
        session->ResumeThreads();
        ConnectedBridgeTest::TearDown();
    }

    /// One reload that routes `NumberOne` to the patch.
    Result<> Reload()
    {
        const auto build = [this]() -> Result<std::wstring> {
            return AwaitText("patch");
        };
        const auto install = [this](const LoadedPatch& patch) -> Result<> {
            EXPECT_LT(0u, session->Threads().Count());
            const auto routed =
                Route(*session, AwaitNumber("one"), patch.FindExport("PatchedNumber"), testTimeout);
            EXPECT_TRUE(routed) << routed.Reason();
            EXPECT_TRUE(SendCallEntryPoint(*session, patch));
            return {};
        };
        Result<> reloaded = RunReload(*session, {build, install}, testTimeout);
        EXPECT_FALSE(session->AreThreadsSuspended());
        return reloaded;
    }

    std::unique_ptr<Session> session;
};
} // namespace

#define KIT_BRIDGE(Name) BRIDGE_SCENARIO_OF(KitBridge, BridgeKit, Name)

KIT_BRIDGE(RoutesFunctionsAndTakesThemBack)
{
    const RemoteAddress one = AwaitNumber("one");
    const RemoteAddress two = AwaitNumber("two");
    const std::vector<Redirection> functions = {{one, AwaitNumber("other one")},
                                                {two, AwaitNumber("other two")}};
    const auto early = Route(*session, functions, testTimeout);
    EXPECT_EQ("the host's threads aren't suspended", early.Reason());

    const uint32_t protection = host.QueryPages(one).protection;
    ASSERT_TRUE(session->SuspendThreads());
    session->Threads().ResumeForLoad();
    const auto meanwhile = Route(*session, functions, testTimeout);
    EXPECT_EQ("the host's threads aren't suspended", meanwhile.Reason());
    ASSERT_TRUE(session->Threads().SuspendAfterLoad());
    const auto routed = Route(*session, functions, testTimeout);
    ASSERT_TRUE(routed) << routed.Reason();
    ASSERT_EQ(2u, routed->size());
    EXPECT_EQ((JumpCode{0xB8, 1, 0, 0, 0}), (*routed)[0].oldCode);
    EXPECT_EQ((JumpCode{0xB8, 2, 0, 0, 0}), (*routed)[1].oldCode);
    EXPECT_EQ(0xE9, (*routed)[0].jump[0]);
    EXPECT_EQ(protection, host.QueryPages(one).protection);
    session->ResumeThreads();
    Signal("routed");
    ASSERT_TRUE(Await("called"));

    ASSERT_TRUE(session->SuspendThreads());
    const Result<> undone = Undo(*session, *routed, testTimeout);
    EXPECT_TRUE(undone) << undone.Reason();
    EXPECT_EQ(protection, host.QueryPages(two).protection);
    EXPECT_NE(std::string::npos, Undo(*session, *routed, testTimeout).Reason().find("was changed since"));
    session->ResumeThreads();
    Signal("undone");
}

KIT_BRIDGE(RefusesRoutesThatWouldEndTheHost)
{
    const RemoteAddress one = AwaitNumber("one");
    ASSERT_TRUE(session->SuspendThreads());
    const RemoteAddress base = host.ExecutableBase();
    EXPECT_EQ(AddressText(base) + " isn't code of the host",
              Route(*session, one, base, testTimeout).Reason());
    EXPECT_EQ("0x00000000 isn't code of the host", Route(*session, one, 0, testTimeout).Reason());
    EXPECT_EQ("0x00000000 isn't code of the host", Route(*session, 0, one, testTimeout).Reason());
    const RemoteAddress two = AwaitNumber("two");
    const auto overlapping = Route(*session, {{one, two}, {one + 4, two}}, testTimeout);
    EXPECT_EQ("the functions at " + AddressText(one) + " and " + AddressText(one + 4) + " overlap",
              overlapping.Reason());
    const auto partly = Route(*session, {{two, AwaitNumber("other two")}, {one, base}}, testTimeout);
    EXPECT_FALSE(partly) << "all or nothing";
    session->ResumeThreads();
    Signal("refused");
}

KIT_BRIDGE(RoutesAFunctionThatAThreadIsIn)
{
    const RemoteAddress looping = AwaitNumber("looping function");
    const RemoteAddress other = AwaitNumber("other one");
    ASSERT_TRUE(Await("looping"));
    uint32_t caught = 0;
    for (uint32_t i = 0; i < 20 || (i < 500 && caught == 0); ++i)
    {
        ASSERT_TRUE(session->SuspendThreads());
        caught += session->Threads().AnyAt(looping + 1, jumpSize - 1);
        const auto routed = Route(*session, looping, other, testTimeout);
        ASSERT_TRUE(routed) << routed.Reason();
        session->ResumeThreads();
        ASSERT_TRUE(session->SuspendThreads());
        const Result<> undone = Undo(*session, {*routed}, testTimeout);
        ASSERT_TRUE(undone) << undone.Reason();
        session->ResumeThreads();
    }
    EXPECT_LT(0u, caught);
    Signal("routed");
}

KIT_BRIDGE(RefusesARouteWhileAThreadStaysInside)
{
    ASSERT_TRUE(Await("stuck"));
    ASSERT_TRUE(session->SuspendThreads());
    const auto routed = Route(*session, AwaitNumber("stuck function"), AwaitNumber("other one"), testTimeout);
    EXPECT_EQ("a thread of the host stays in the first bytes of a function that is to be replaced",
              routed.Reason());
    session->ResumeThreads();
    Signal("refused");
}

KIT_BRIDGE(ReportsAtOnceWhyALoadHasFailed)
{
    const double begin = link.Now();
    PatchCommand command;
    command.path = AwaitText("missing");
    EXPECT_EQ("Failed to load patch from " + Utf8(command.path) + ": the file can't be read or is empty",
              LoadPatch(*session, command, testTimeout).Reason());
    command.path = AwaitText("imports");
    EXPECT_EQ(0u, LoadPatch(*session, command, testTimeout)
                      .Reason()
                      .find("Failed to load patch from " + Utf8(command.path) +
                            ": it imports Absent.dll, which the host"));
    EXPECT_GT(testTimeout / 1000.0, link.Now() - begin) << "It hasn't waited until the limit.";
    Signal("reported");
}

KIT_BRIDGE(ReadsMemoryAndRefusesWhatCannotBeRead)
{
    const RemoteAddress numbers = AwaitNumber("numbers");
    const auto read = ReadMemory(link, numbers, 8, testTimeout);
    ASSERT_TRUE(read) << read.Reason();
    EXPECT_EQ((std::vector<uint8_t>{1, 0, 0, 0, 2, 0, 0, 0}), *read);
    const auto elements = ReadElements(link, 1, {numbers + 8, numbers}, testTimeout);
    ASSERT_TRUE(elements) << elements.Reason();
    EXPECT_EQ((std::vector<uint8_t>{3, 1}), *elements);
    EXPECT_EQ("4 bytes at 0x00000010 can't be read", ReadMemory(link, 0x10, 4, testTimeout).Reason());
    Signal("read");
}

KIT_BRIDGE(ReloadsADefaultAgent)
{
    const Result<> reloaded = Reload();
    EXPECT_TRUE(reloaded) << reloaded.Reason();
    Signal("reloaded");
}

KIT_BRIDGE(ReloadsASynchronizedAgentBeforeTheLoad)
{
    const Result<> reloaded = Reload();
    EXPECT_TRUE(reloaded) << reloaded.Reason();
    Signal("reloaded");
}

KIT_BRIDGE(ReloadsASynchronizedAgentBeforeTheCompilation)
{
    const Result<> reloaded = Reload();
    EXPECT_TRUE(reloaded) << reloaded.Reason();
    Signal("reloaded");
}

KIT_BRIDGE(FinishesAReloadThatFails)
{
    const auto build = []() -> Result<std::wstring> {
        return Failure{"the compiler has failed"};
    };
    const auto install = [](const LoadedPatch&) -> Result<> {
        return {};
    };
    EXPECT_EQ("the compiler has failed", RunReload(*session, {build, install}, testTimeout).Reason());
    Signal("reported");
}

KIT_BRIDGE(RefusesToLoadWhileASynchronizedHostIsSuspended)
{
    const Result<> requested = RequestReload(*session, testTimeout);
    ASSERT_TRUE(requested) << requested.Reason();
    Signal("granted");
    ASSERT_TRUE(session->SuspendThreads());
    const auto loaded = LoadPatch(*session, AwaitText("patch"), testTimeout);
    EXPECT_EQ(0u,
              loaded.Reason().find("the host's threads are suspended, one of which has to let the patch in"));
    EXPECT_EQ(0u, RequestReload(*session, testTimeout).Reason().find("the host's threads are suspended"));
    EXPECT_EQ(0u, RequestRestart(*session, testTimeout).Reason().find("the host's threads are suspended"));
    session->ResumeThreads();
    Signal("refused");
}

KIT_BRIDGE(ServesExceptionsWhileItWaits)
{
    uint32_t count = 0;
    const auto decide = [&](const ReportedException& exception) -> ExceptionDecision {
        ++count;
        EXPECT_EQ(static_cast<uint32_t>(EXCEPTION_ACCESS_VIOLATION), exception.code);
        EXPECT_EQ((std::vector<uint32_t>{1, 16}), exception.parameters);
        EXPECT_TRUE(Bridge::Fence(link, testTimeout)) << "A handler can wait.";
        return {ActionSkipInstruction};
    };
    const Result<> served = ServeExceptions(*session, HandlerPlace::First, decide, testTimeout);
    ASSERT_TRUE(served) << served.Reason();
    Signal("installed");
    EXPECT_TRUE(link.WaitForOneOf({BlobType::ScheduleReload}, testTimeout));
    EXPECT_EQ(3u, count);
    Signal("waited");
}

KIT_BRIDGE(RunsOneRequestAfterTheOther)
{
    uint32_t active = 0;
    uint32_t count = 0;
    link.ServeInRun(BlobType::ScheduleReload, [&](const Message&) {
        EXPECT_EQ(0u, active++);
        EXPECT_TRUE(Bridge::Fence(link, testTimeout)) << "The next request is in the inbox by now.";
        --active;
        if (++count == 3)
        {
            Signal("three served");
        }
    });
    EXPECT_TRUE(Fence());
    EXPECT_EQ(0u, count) << "Waits don't serve it.";
    channel.SetState(BridgeState::Staying);
    link.Run();
    EXPECT_EQ(3u, count);
    ExitBeforeAgent();
}

KIT_BRIDGE(SaysWhyThreadsCannotBeSuspended)
{
    ThreadSuspender nobody(0xFFFFFFF0, {});
    const Result<> suspended = nobody.Suspend();
    EXPECT_EQ("the host can't be opened, or has ended", suspended.Reason());
    EXPECT_EQ(0u, nobody.Count());
    ThreadSuspender itself(host.Id(), {});
    EXPECT_TRUE(itself.Suspend());
    itself.Resume();
    Signal("said");
}

#endif
