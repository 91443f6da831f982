#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The events by which a synchronized agent's host and its receiver thread agree, signal by signal.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/HandleTrace.h"
#include "tests/Support/Modules.h"
#include "tests/Support/TestThread.h"

namespace
{
using Calls = std::vector<std::string>;

constexpr DWORD longerLook = 200; // milliseconds

class ReloadEventsTest : public HostTest
{
protected:
    void Trace()
    {
        PublishText("patch", ImagePath(L"PlainPatch"));
        trace = new HandleTrace(Library().Module()); // for the rest of the process
    }

    /// This thread's calls about the six events since the last time that this was asked.
    Calls NewCalls()
    {
        Calls found;
        const Calls all = trace->OwnCalls();
        for (; seen < all.size(); ++seen)
        {
            const std::string& call = all[seen];
            const size_t event = call.find(" event ");
            if (event != std::string::npos && call.size() == event + 8 && call.back() <= '6')
            {
                found.push_back(call);
            }
        }
        return found;
    }

    static bool IsPatchThere()
    {
        return GetModuleHandleW(ImagePath(L"PlainPatch").c_str()) != nullptr;
    }

    /// How often each of the six has been signalled by anybody.
    std::vector<size_t> Signals() const
    {
        std::vector<size_t> counts;
        for (int event = 1; event <= 6; ++event)
        {
            counts.push_back(trace->Count("set event " + std::to_string(event)));
        }
        return counts;
    }

    HandleTrace* trace = nullptr;

private:
    size_t seen = 0;
};

using Counts = std::vector<size_t>;
} // namespace

#define RELOAD_EVENTS(Name) HOST_TEST_OF(ReloadEventsTest, ReloadEvents, Name)

RELOAD_EVENTS(AreNoneInADefaultAgent)
{
    UseScenario("ReloadEvents.OfBothSequences");
    Trace();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    EXPECT_TRUE(Await("requested"));
    agent.TvnScheduleReload();
    Library().TvnReload(NoWait);
    Signal("accepted");
    EXPECT_TRUE(Await("finished"));
    EXPECT_TRUE(IsPatchThere());
    EXPECT_EQ((Counts{0, 0, 0, 0, 0, 0}), Signals());
}

RELOAD_EVENTS(OfTheSequenceBeforeTheCompilation)
{
    UseScenario("ReloadEvents.OfBothSequences");
    Trace();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(Await("requested"));
    EXPECT_EQ((Counts{0, 1, 0, 0, 0, 0}), Signals());
    NewCalls();
    EXPECT_TRUE(agent.TvnWantsReload(SyncBeforeCompile));
    EXPECT_EQ(
        (Calls{"wait for " + hotReload, "reset " + hotReload, "reset " + loadPatch,
               "reset " + loadPatchReceived, "reset " + hotReloadFinished, "set " + shouldCompileAndReload}),
        NewCalls());
    Signal("accepted");
    agent.TvnReload(WaitUntilFinished);
    EXPECT_EQ((Calls{"wait for " + loadPatch, "wait for " + shouldCompileAndReload,
                     "wait for " + hotReloadFinished}),
              NewCalls());
    EXPECT_TRUE(IsPatchThere());
    EXPECT_TRUE(Await("finished"));
    EXPECT_EQ((Counts{1, 1, 0, 0, 0, 1}), Signals());
}

RELOAD_EVENTS(OfTheSequenceBeforeTheLoad)
{
    UseScenario("ReloadEvents.OfBothSequences");
    Trace();
    TvnSynchronizedAgent& agent = ConnectSynchronizedAgent();
    EXPECT_TRUE(Await("requested"));
    NewCalls();
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    EXPECT_EQ(
        (Calls{"wait for " + hotReload, "reset " + hotReload, "reset " + loadPatch,
               "reset " + loadPatchReceived, "reset " + hotReloadFinished, "set " + shouldCompileAndReload,
               "wait for " + loadPatch, "wait for " + shouldCompileAndReload,
               "reset " + shouldCompileAndReload, "set " + waitForPatchLoad, "wait for " + loadPatch}),
        NewCalls());
    Signal("accepted");
    EXPECT_TRUE(WaitUntil([&] { return trace->Count("set " + loadPatch) == 1; }));
    EXPECT_FALSE(IsPatchThere());
    EXPECT_TRUE(trace->IsBefore("reset " + waitForPatchLoad, "set " + loadPatch))
        << "From then on the host can accept another request, which sets it again.";
    EXPECT_EQ(1u, trace->Count("reset " + waitForPatchLoad));
    EXPECT_TRUE(agent.TvnWantsReload(SyncBeforeLoad));
    NewCalls();
    agent.TvnReload(WaitUntilFinished);
    EXPECT_EQ((Calls{"wait for " + loadPatch, "reset " + loadPatch, "set " + loadPatchReceived,
                     "wait for " + shouldCompileAndReload, "wait for " + hotReloadFinished}),
              NewCalls());
    EXPECT_TRUE(IsPatchThere());
    EXPECT_TRUE(Await("finished"));
    EXPECT_EQ((Counts{1, 1, 1, 1, 1, 1}), Signals());
}

RELOAD_EVENTS(OfAPatchThatWaitsAreClearedByASecondRequest)
{
    Trace();
    ExpectNoBridge(); // it stays, as its Agent does
    TvnSynchronizedAgent& agent = StartSynchronizedAgent();
    LeaveAgentRunning(); // nobody wakes its receiver any more
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    ASSERT_TRUE(Await("requested"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad));
    Signal("accepted");
    ASSERT_TRUE(WaitUntil([&] { return trace->Count("set " + loadPatch) == 1; }));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad)) << "It accepts the second request.";
    EXPECT_EQ(2u, CountInLog("API TvnReload"));
    EXPECT_FALSE(agent.TvnWantsReload(SyncBeforeLoad)) << "The patch is reported once.";
    agent.TvnReload(NoWait);
    EXPECT_EQ((Counts{2, 2, 1, 0, 2, 0}), Signals());
    const TestThread look([] { Sleep(longerLook); });
    EXPECT_TRUE(look.WaitForEnd(testTimeout));
    EXPECT_FALSE(IsPatchThere());
    EXPECT_EQ(0u, CountInLog("Processing Blob::Synchronize"));
}

#else

namespace
{
bool LoadPublishedPatch(Link& link, const std::wstring& path)
{
    PatchCommand patch;
    patch.path = path;
    return SendLoadPatch(link, patch);
}
} // namespace

BRIDGE_SCENARIO(ReloadEvents, OfBothSequences)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    EXPECT_TRUE(link.WaitForOneOf({BlobType::Reload}, testTimeout));
    ASSERT_TRUE(LoadPublishedPatch(link, AwaitText("patch")));
    EXPECT_TRUE(WaitFor<PatchLoadedBlob>());
    ASSERT_TRUE(SendFinishAfterHotReload(link));
    ASSERT_TRUE(Fence());
    Signal("finished");
}

BRIDGE_SCENARIO(ReloadEvents, OfAPatchThatWaitsAreClearedByASecondRequest)
{
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(Fence());
    Signal("requested");
    ASSERT_TRUE(Await("accepted"));
    ASSERT_TRUE(SendRequestReload(link));
    ASSERT_TRUE(LoadPublishedPatch(link, AwaitText("patch")));
    ASSERT_TRUE(SendSynchronize(link));
}

#endif
