#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// The ends of the receiver: what it logs, and when it releases the calls that wait for the Bridge.

#if TORVANE_HOST_HALF

#include "Agent/Protocol/Blob.h"
#include "tests/Support/TestThread.h"

#include <memory>

namespace
{
/// A call that waits for the Bridge, and what it did while the status was reported.
struct WaitingCall
{
    std::unique_ptr<TestThread> thread;
    volatile long status = -1;
    volatile long hadReturned = -1;
};

void TVN_CALL LookAtCall(void* context, TvnConnectionStatus status)
{
    WaitingCall& call = *static_cast<WaitingCall*>(context);
    call.hadReturned = call.thread->WaitForEnd(quietPeriod) ? 1 : 0;
    InterlockedExchange(&call.status, status);
}

constexpr DWORD pipeError = ERROR_NO_SYSTEM_RESOURCES; // not one of an ordinary end

volatile DWORD failingSize; ///< of the reads that fail; 0 if none does

BOOL WINAPI FailRead(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    if (size == failingSize)
    {
        SetLastError(pipeError);
        return FALSE;
    }
    return ReadFile(file, buffer, size, count, overlapped);
}

class ReceiverEndTest : public LinkTest
{
protected:
    /// Starts an Agent and a call that waits for its Bridge. The Bridge half has the call's Blob when this returns.
    void StartWithWaitingCall()
    {
        TvnDefaultAgent& agent = StartDefaultAgent();
        call.thread = std::make_unique<TestThread>(
            [&agent] { agent.TvnEnableModule(L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr); });
        Library().TvnOnConnection(&call, &LookAtCall);
        EXPECT_TRUE(Await("received"));
        EXPECT_FALSE(call.thread->WaitForEnd(quietPeriod));
        Signal("waits");
    }

    void ExpectReleasedAfter(TvnConnectionStatus status, uint32_t receiverResult)
    {
        EXPECT_TRUE(call.thread->WaitForEnd());
        EXPECT_EQ(status, call.status);
        EXPECT_EQ(0, call.hadReturned) << "The status is reported first.";
        ExpectReceiverEnd(receiverResult);
    }

    /// From the next one on, reads of that size fail.
    void FailReadsOf(DWORD size)
    {
        ReplaceImport("ReadFile", FailRead);
        StartWatchedAgent();
        ExpectStatus(ConnectionSucceeded);
        failingSize = size;
        Signal("failing");
    }

    WaitingCall call;
};
} // namespace

#define RECEIVER_END(Name) HOST_TEST_OF(ReceiverEndTest, ReceiverEnd, Name)

RECEIVER_END(AtAFirstBlobThatIsNoVersionReleasesWaitingCallsAfterTheStatus)
{
    StartWithWaitingCall();
    ExpectReleasedAfter(UnexpectedVersionBlob, 18);
}

RECEIVER_END(AtAnotherVersionReleasesWaitingCallsAfterTheStatus)
{
    StartWithWaitingCall();
    ExpectReleasedAfter(VersionMismatch, 19);
}

RECEIVER_END(WithinTheVersionReleasesWaitingCallsAfterTheStatus)
{
    StartWithWaitingCall();
    ExpectReleasedAfter(ConnectionFailed, 9);
}

RECEIVER_END(WithinABlobReleasesWaitingCalls)
{
    StartWithWaitingCall();
    ExpectReleasedAfter(ConnectionSucceeded, 9);
}

RECEIVER_END(AtARefusedBlobReleasesWaitingCalls)
{
    StartWithWaitingCall();
    ExpectReleasedAfter(ConnectionSucceeded, 0);
}

RECEIVER_END(AtAHeaderThatCannotBeReadIsLogged)
{
    FailReadsOf(sizeof(BlobHeader));
    ExpectReceiverEnd(8);
    ExpectLogOrder({"Processing Blob::Synchronize", "ReadFile() failed.",
                    "Failed to receive blob header from bridge",
                    "Thread 'Torvane receiver' exited with result 8"});
    EXPECT_EQ(1u, CountInLog("Failed to receive blob header from bridge"));
    EXPECT_EQ(std::vector<uint32_t>{pipeError}, PipeErrors());
}

RECEIVER_END(AtAPayloadThatCannotBeReadIsLogged)
{
    FailReadsOf(100);
    ExpectReceiverEnd(9);
    ExpectLogOrder({"ReadFile() failed.", "Failed to receive blob from bridge",
                    "Thread 'Torvane receiver' exited with result 9"});
    EXPECT_EQ(0u, CountInLog("Processing Blob::Synchronize"));
    EXPECT_EQ(1u, CountInLog("Failed to receive blob from bridge"));
    EXPECT_EQ(std::vector<uint32_t>{pipeError}, PipeErrors());
}

#else

namespace
{
/// Takes the Blob of the host's waiting call, before or after the version was sent.
class ReceiverEndBridge : public BridgeTest
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(link.Connect(testTimeout));
    }

    void TakeWaitingCall()
    {
        ASSERT_TRUE(link.WaitFor<EnableModulesBlob>(testTimeout));
        Signal("received");
        ASSERT_TRUE(Await("waits"));
    }

    /// Half of a Blob, and then the pipes are closed.
    void SendBeginning(BlobType type)
    {
        std::vector<uint8_t> bytes = MakeBlob(type, nullptr, 0);
        bytes[0] = 100; // the size that the header promises
        EXPECT_TRUE(link.Send(bytes));
        link.Close();
    }
};
} // namespace

#define RECEIVER_END_BRIDGE(Name) BRIDGE_SCENARIO_OF(ReceiverEndBridge, ReceiverEnd, Name)

RECEIVER_END_BRIDGE(AtAFirstBlobThatIsNoVersionReleasesWaitingCallsAfterTheStatus)
{
    TakeWaitingCall();
    EXPECT_TRUE(SendSynchronize(link));
    StayUntilAgentGoes();
}

RECEIVER_END_BRIDGE(AtAnotherVersionReleasesWaitingCallsAfterTheStatus)
{
    TakeWaitingCall();
    EXPECT_TRUE(SendVersion(link, "2.4.1"));
    StayUntilAgentGoes();
}

RECEIVER_END_BRIDGE(WithinTheVersionReleasesWaitingCallsAfterTheStatus)
{
    TakeWaitingCall();
    SendBeginning(BlobType::Version);
}

RECEIVER_END_BRIDGE(WithinABlobReleasesWaitingCalls)
{
    EXPECT_TRUE(SendVersion(link));
    TakeWaitingCall();
    SendBeginning(BlobType::Synchronize);
}

RECEIVER_END_BRIDGE(AtARefusedBlobReleasesWaitingCalls)
{
    EXPECT_TRUE(SendVersion(link));
    TakeWaitingCall();
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::RegisterProjectPreferences, nullptr, 0)));
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO(ReceiverEnd, AtAHeaderThatCannotBeReadIsLogged)
{
    ASSERT_TRUE(Await("failing"));
    EXPECT_TRUE(SendSynchronize(link)); // whose header is waited for already
}

BRIDGE_SCENARIO(ReceiverEnd, AtAPayloadThatCannotBeReadIsLogged)
{
    ASSERT_TRUE(Await("failing"));
    const std::vector<uint8_t> payload(100);
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::Synchronize, payload.data(), payload.size())));
}

#endif
