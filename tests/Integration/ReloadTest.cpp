#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"
#include "tests/Support/TestThread.h"

#include <windows.h>

// Who agrees to a reload, when, and what waits meanwhile. The patches are libraries of the system's that no host
// needs: here only the moment of loading matters.

namespace
{
constexpr wchar_t firstPatch[] = L"C:\\windows\\system32\\avicap32.dll";
constexpr wchar_t secondPatch[] = L"C:\\windows\\system32\\cards.dll";
} // namespace

#if TORVANE_HOST_HALF

namespace
{
bool IsLoaded(const wchar_t* path)
{
    return GetModuleHandleW(path) != nullptr;
}
} // namespace

// ---- Default agent ----

HOST_TEST(Reload, DefaultAgentAgreesAtOnce)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("reloaded"));
    EXPECT_EQ(1u, CountInLog("API TvnReload"));
    EXPECT_EQ(0u, CountInLog("Processing Blob::RequestReload"));
    EXPECT_EQ(1u, CountInLog("Processing Blob::FinishAfterHotReload"));
    ExpectNoErrorsInLog();
}

HOST_TEST(Reload, DefaultAgentSignalsNoEvent)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("requested"));
    EXPECT_FALSE(Library().TvnWantsReload(SyncBeforeCompile));
    EXPECT_FALSE(Library().TvnWantsReload(SyncBeforeLoad));
    Signal("polled");
}

HOST_TEST(Reload, DefaultAgentLoadsWithoutAHost)
{
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("loaded"));
    EXPECT_TRUE(IsLoaded(firstPatch));
}

HOST_TEST(Reload, AHostAsksForOne)
{
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnScheduleReload();
    EXPECT_TRUE(Await("reloaded"));
    ExpectLogOrder({"API TvnScheduleReload", "API TvnReload", "Processing Blob::FinishAfterHotReload"});
}

// ---- Synchronized agent, stopping before the compilation ----

HOST_TEST(Reload, BeforeCompileWaitsForTheHostAndHoldsItUntilTheEnd)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeCompile));
    Signal("polled");
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(static_cast<TvnReloadSync>(2))) << "takes no request";
    EXPECT_TRUE(agent.TvnWantsReload(SyncBeforeCompile));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeCompile)) << "One request gives one true.";
    Signal("accepted");
    EXPECT_FALSE(IsLoaded(firstPatch));
    agent.TvnReload(WaitUntilFinished);
    Signal("returned");
    EXPECT_TRUE(IsLoaded(firstPatch));
    EXPECT_EQ(1u, CountInLog("API TvnReload"));
    ExpectNoErrorsInLog();
}

HOST_TEST(Reload, BeforeCompileSendsWithoutAWaitIfTheHostWantsNone)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeCompile); }));
    agent.TvnReload(NoWait);
    Signal("returned");
    EXPECT_TRUE(Await("loaded"));
}

HOST_TEST(Reload, WithoutARequestNothingIsSent)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    agent.TvnReload(NoWait);
    Signal("returned");
}

HOST_TEST(Reload, WithoutARequestAWaitLastsUntilAReloadIsFinished)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    TestThread thread([&] { agent.TvnReload(WaitUntilFinished); });
    EXPECT_TRUE(WaitForLog("API TvnReload"));
    EXPECT_FALSE(thread.HasEnded());
    Signal("waiting");
    EXPECT_TRUE(thread.WaitForEnd(testTimeout));
    agent.TvnReload(WaitUntilFinished); // that of before is still finished
    Signal("returned");
}

HOST_TEST(Reload, AfterACycleBeforeCompileEachFurtherCallSendsAgainUntilACycleBeforeLoad)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeCompile); }));
    agent.TvnReload(NoWait);
    agent.TvnReload(NoWait);
    agent.TvnReload(NoWait);
    Signal("sent three times");
    ASSERT_TRUE(Await("requested again"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    agent.TvnReload(NoWait);
    Signal("sent once");
}

// ---- Synchronized agent, stopping before the load ----

HOST_TEST(Reload, BeforeLoadLetsTheHostWorkUntilAPatchIsThere)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("polled");
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad)) << "The call that accepts gives false.";
    EXPECT_EQ(1u, CountInLog("API TvnReload")) << "from within TvnWantsReload";
    Signal("accepted");
    ASSERT_TRUE(Await("granted"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad)) << "The Broker compiles.";
    Signal("load");
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    EXPECT_TRUE(agent.TvnWantsReload(SyncBeforeLoad)) << "It stays true until TvnReload.";
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeCompile)) << "There is no request any more.";
    EXPECT_FALSE(IsLoaded(firstPatch));
    Signal("seen");
    agent.TvnReload(WaitUntilFinished);
    Signal("returned");
    EXPECT_TRUE(IsLoaded(firstPatch));
    EXPECT_TRUE(IsLoaded(secondPatch));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    EXPECT_EQ(2u, CountInLog("API TvnReload"));
    ExpectNoErrorsInLog();
}

HOST_TEST(Reload, BeforeLoadHandsOnlyTheFirstPatchOver)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    agent.TvnReload(NoWait);
    EXPECT_TRUE(Await("both loaded"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
}

HOST_TEST(Reload, AFailedLoadLetsTheHostWaitUntilItIsFinishedToo)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    TestThread thread([&] { agent.TvnReload(WaitUntilFinished); });
    EXPECT_TRUE(Await("failed"));
    EXPECT_FALSE(thread.WaitForEnd(quietPeriod));
    Signal("waiting");
    EXPECT_TRUE(thread.WaitForEnd());
}

HOST_TEST(Reload, APatchForSuspendedThreadsIsNotHandedOver)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    ASSERT_TRUE(Await("loaded"));
    EXPECT_TRUE(IsLoaded(firstPatch));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("polled");
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); })) << "The next one is.";
    EXPECT_FALSE(IsLoaded(secondPatch));
    agent.TvnReload(WaitUntilFinished);
    EXPECT_TRUE(IsLoaded(secondPatch));
}

// ---- One reload upon another, and none that ends ----

HOST_TEST(Reload, ASecondRequestClearsWhatTheFirstHasLeft)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeCompile); }));
    agent.TvnReload(NoWait);
    Signal("first sent");
    ASSERT_TRUE(Await("first finished, second requested"));
    EXPECT_TRUE(agent.TvnWantsReload(SyncBeforeCompile));
    TestThread thread([&] { agent.TvnReload(WaitUntilFinished); });
    ASSERT_TRUE(Await("second granted"));
    EXPECT_FALSE(thread.HasEnded()) << "The end of the first reload doesn't count for the second.";
    Signal("waiting");
    EXPECT_TRUE(thread.WaitForEnd(testTimeout));
}

HOST_TEST(Reload, TheNextPollAcceptsARequestThatCameDuringAReload)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(Await("requested twice"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad)) << "Two requests are one as long as nobody polls.";
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    ASSERT_TRUE(Await("granted, requested a third time"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted again");
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    agent.TvnReload(WaitUntilFinished);
}

HOST_TEST(Reload, AHostThatWaitsWhenTheConnectionIsLostKeepsWaiting)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeCompile); }));
    static TestThread thread([&] { agent.TvnReload(WaitUntilFinished); });
    EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 8"));
    EXPECT_EQ(1u, CountInLog("API TvnReload"));
    EXPECT_FALSE(thread.HasEnded());
    thread.Abandon();
    LeaveAgentRunning();
}

HOST_TEST(Reload, AHostThatStopsPollingStopsTheAgent)
{
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    EXPECT_TRUE(WaitForLog("Processing Blob::LoadPatchWindows"));
    ASSERT_TRUE(Await("everything sent"));
    EXPECT_EQ(0u, CountInLog("Processing Blob::Synchronize"));
    EXPECT_TRUE(WaitUntil([&] { return agent.TvnWantsReload(SyncBeforeLoad); }));
    EXPECT_EQ(0u, CountInLog("Processing Blob::Synchronize"));
    agent.TvnReload(NoWait);
    EXPECT_TRUE(WaitForLog("Processing Blob::Synchronize"));
    ExpectLogOrder({"Processing Blob::LoadPatchWindows", "API TvnReload", "Processing Blob::Synchronize"});
}

#else

namespace
{
class ReloadBridge : public ConnectedBridgeTest
{
protected:
    /// Whether a `Reload` of the host's comes, with nothing but the process id in it.
    bool IsGranted()
    {
        const Message reload = link.WaitForOneOf({BlobType::Reload}, testTimeout);
        EXPECT_EQ(ByteImage(4).U32(0, link.HostProcessId()).Blob(43), reload.Bytes());
        return static_cast<bool>(reload);
    }

    /// Whether none has come for all that the host has called so far.
    bool IsNotGranted()
    {
        return Fence() && !link.WaitForOneOf({BlobType::Reload}, 0);
    }

    bool Load(const wchar_t* path, bool watchdog = false)
    {
        PatchCommand command;
        command.path = path;
        command.watchdog = watchdog;
        return SendLoadPatch(link, command);
    }

    bool IsPatchLoaded(const wchar_t* path)
    {
        const auto loaded = WaitFor<PatchLoadedBlob>();
        return loaded && loaded.Utf16String(loaded->patchPath) == path;
    }

    bool IsNoPatchLoaded()
    {
        return !link.WaitForOneOf({BlobType::PatchLoaded}, 0);
    }
};
} // namespace

#define RELOAD_BRIDGE(Name) BRIDGE_SCENARIO_OF(ReloadBridge, Reload, Name)

RELOAD_BRIDGE(DefaultAgentAgreesAtOnce)
{
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    ASSERT_TRUE(Fence());
    Signal("reloaded");
}

RELOAD_BRIDGE(DefaultAgentSignalsNoEvent)
{
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("polled"));
    EXPECT_TRUE(IsNotGranted());
}

RELOAD_BRIDGE(DefaultAgentLoadsWithoutAHost)
{
    ASSERT_TRUE(Load(firstPatch));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    Signal("loaded");
}

RELOAD_BRIDGE(AHostAsksForOne)
{
    const Message schedule = link.WaitForOneOf({BlobType::ScheduleReload}, testTimeout);
    ASSERT_TRUE(schedule);
    EXPECT_EQ(4u, schedule.PayloadSize());
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    ASSERT_TRUE(Fence());
    Signal("reloaded");
}

RELOAD_BRIDGE(BeforeCompileWaitsForTheHostAndHoldsItUntilTheEnd)
{
    ASSERT_TRUE(Await("polled"));
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsNotGranted()) << "Nothing is sent before the host has polled.";
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(Load(firstPatch));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    ASSERT_TRUE(Fence());
    EXPECT_FALSE(Await("returned", 0));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    EXPECT_TRUE(Await("returned"));
    EXPECT_TRUE(IsNotGranted()) << "One Reload in all.";
}

RELOAD_BRIDGE(BeforeCompileSendsWithoutAWaitIfTheHostWantsNone)
{
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsGranted());
    EXPECT_TRUE(Await("returned"));
    ASSERT_TRUE(Load(firstPatch));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    Signal("loaded");
}

RELOAD_BRIDGE(WithoutARequestNothingIsSent)
{
    ASSERT_TRUE(Await("returned"));
    EXPECT_TRUE(IsNotGranted());
}

RELOAD_BRIDGE(WithoutARequestAWaitLastsUntilAReloadIsFinished)
{
    ASSERT_TRUE(Await("waiting"));
    EXPECT_TRUE(IsNotGranted());
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    EXPECT_TRUE(Await("returned"));
}

RELOAD_BRIDGE(AfterACycleBeforeCompileEachFurtherCallSendsAgainUntilACycleBeforeLoad)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Await("sent three times"));
    EXPECT_TRUE(IsGranted() && IsGranted() && IsGranted());
    EXPECT_TRUE(IsNotGranted());
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested again");
    ASSERT_TRUE(Await("sent once"));
    EXPECT_TRUE(IsGranted());
    EXPECT_TRUE(IsNotGranted());
}

RELOAD_BRIDGE(BeforeLoadLetsTheHostWorkUntilAPatchIsThere)
{
    ASSERT_TRUE(Await("polled"));
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsNotGranted());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    EXPECT_TRUE(IsGranted());
    Signal("granted");
    ASSERT_TRUE(Await("load"));
    ASSERT_TRUE(Load(firstPatch));
    ASSERT_TRUE(Load(secondPatch));
    ASSERT_TRUE(Await("seen"));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    EXPECT_TRUE(IsPatchLoaded(secondPatch));
    ASSERT_TRUE(Fence());
    EXPECT_FALSE(Await("returned", 0));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    EXPECT_TRUE(Await("returned"));
    EXPECT_TRUE(IsNotGranted()) << "The Reload was sent when the request was accepted.";
}

RELOAD_BRIDGE(BeforeLoadHandsOnlyTheFirstPatchOver)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(Load(firstPatch));
    ASSERT_TRUE(Load(secondPatch));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    EXPECT_TRUE(IsPatchLoaded(secondPatch));
    Signal("both loaded");
}

RELOAD_BRIDGE(AFailedLoadLetsTheHostWaitUntilItIsFinishedToo)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(Load(L"C:\\no such patch.dll"));
    const auto report = link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow);
    ASSERT_TRUE(report);
    EXPECT_EQ(BlobLogLevel::Error, report->level);
    Signal("failed");
    ASSERT_TRUE(Await("waiting"));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
}

RELOAD_BRIDGE(APatchForSuspendedThreadsIsNotHandedOver)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    ASSERT_TRUE(Load(firstPatch, true));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    Signal("loaded");
    ASSERT_TRUE(Await("polled"));
    ASSERT_TRUE(Load(secondPatch));
    EXPECT_TRUE(IsPatchLoaded(secondPatch));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
}

RELOAD_BRIDGE(ASecondRequestClearsWhatTheFirstHasLeft)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Await("first sent"));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("first finished, second requested");
    EXPECT_TRUE(IsGranted());
    Signal("second granted");
    ASSERT_TRUE(Await("waiting"));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
}

RELOAD_BRIDGE(TheNextPollAcceptsARequestThatCameDuringAReload)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested twice");
    ASSERT_TRUE(Await("accepted"));
    EXPECT_TRUE(IsGranted());
    EXPECT_TRUE(IsNotGranted());
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("granted, requested a third time");
    ASSERT_TRUE(Await("accepted again"));
    EXPECT_TRUE(IsGranted());
    ASSERT_TRUE(Load(firstPatch));
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    ASSERT_TRUE(SendFinishAfterHotReload(link));
}

RELOAD_BRIDGE(AHostThatWaitsWhenTheConnectionIsLostKeepsWaiting)
{
    ASSERT_TRUE(SendRequestReload(link));
    EXPECT_TRUE(IsGranted());
    link.Close();
    ExitBeforeAgent();
}

RELOAD_BRIDGE(AHostThatStopsPollingStopsTheAgent)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    ASSERT_TRUE(Load(firstPatch));
    ASSERT_TRUE(SendSynchronize(link));
    ASSERT_TRUE(SendEchoRequest(link, 1));
    Signal("everything sent");
    EXPECT_TRUE(IsPatchLoaded(firstPatch));
    EXPECT_TRUE(WaitFor<EchoReplyBlob>());
}

#endif
