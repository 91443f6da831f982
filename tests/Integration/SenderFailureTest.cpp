#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A Bridge that ends or stops reading, seen by the Agent as the writer: at every Blob that it sends.

#if TORVANE_HOST_HALF

#include "tests/Support/OperatingSystem.h"
#include "tests/Support/TestThread.h"

namespace
{
constexpr size_t pipeBuffer = 0x20000;
constexpr size_t versionBlob = 18;
constexpr size_t preferencesHeaderAndRecord = 8 + 120;
constexpr size_t longestRegisterAgent = 8 + 1036 + 32;

constexpr wchar_t directoryToBroker[] = L"../../Broker";

/// A record whose Blob has that many bytes, header included. Its text is kept in `filling`.
TvnProjectPreferences MakeRecordOfSize(size_t blobSize, std::string& filling)
{
    TvnProjectPreferences record = {};
    record.directoryToBroker = directoryToBroker;
    record.wideText18 = record.wideText1C = record.wideText28 = record.wideText38 = L"";
    record.wideText4C = record.wideText5C = L"";
    record.text0C = record.text20 = record.text2C = record.text3C = record.text58 = record.text64 = "";
    const size_t otherTexts = sizeof(directoryToBroker) + 6 * sizeof(wchar_t) + 6;
    filling.assign(blobSize - preferencesHeaderAndRecord - otherTexts - 1, 'x');
    record.text08 = filling.c_str();
    return record;
}

class SenderFailureTest : public LinkTest
{
protected:
    /// The Bridge dies while the sender writes a Blob of the handshake: it can't end that write, since the Bridge
    /// hasn't read anything and the pipe's buffer is full. \param preferencesBlob size of the second Blob; \param
    /// blocked bytes that are only all in the pipe when the sender is in the right write.
    void DieDuringHandshake(size_t preferencesBlob, size_t blocked, uint32_t result, const char* name)
    {
        UseScenario("SenderFailure.DiesWhileTheSenderWrites");
        Publish("blocked", uint64_t(blocked));
        std::string filling;
        const TvnProjectPreferences record = MakeRecordOfSize(preferencesBlob, filling);
        StartWatchedAgent(&record);
        ExpectStatus(ConnectionSucceeded);
        ExpectReceiverEnd(8);
        ExpectSenderEnd(result);
        const std::string words = std::string("Failed to send ") + name + " blob";
        ExpectErrorLines({words});
        EXPECT_EQ(0u, CountInLog("Sender thread ready"));
        ExpectHostWorksAndShutsDown();
        ExpectSenderEnd(result);
        ExpectErrorLines({words});
    }

    void DieAfterTaking(uint64_t count)
    {
        UseScenario("SenderFailure.TakesSomeBlobsAndDies");
        Publish("count", count);
        StartWatchedAgent();
        EXPECT_TRUE(WaitForLog("Sender thread ready"));
        Signal("sender ready");
        ExpectStatus(ConnectionFailed);
        ExpectReceiverEnd(8);
        ExpectHostWorksAndShutsDown();
        ExpectSenderEnd(7);
        ExpectErrorLines({});
        EXPECT_EQ(0u, CountInLog("Exiting sender thread"));
    }
};
} // namespace

#define SENDER_FAILURE(Name) HOST_TEST_OF(SenderFailureTest, SenderFailure, Name)

SENDER_FAILURE(EndsWith3AtTheVersion)
{
    StartWatchedAgent();
    WaitForFirstPipe();
    Signal("first pipe connected");
    ExpectStatus(ConnectionSucceeded);
    ExpectSenderEnd(3);
    ExpectErrorLines({"Failed to send Version blob"});
    Signal("sender ended");
    ExpectReceiverEnd(8);
    ExpectHostWorksAndShutsDown();
}

SENDER_FAILURE(EndsWith4AtTheProjectPreferences)
{
    const size_t preferences = pipeBuffer + 1000;
    DieDuringHandshake(preferences, versionBlob + preferences, 4, "RegisterProjectPreferences");
}

SENDER_FAILURE(EndsWith5AtTheAgent)
{
    const size_t preferences = pipeBuffer - versionBlob - 500;
    DieDuringHandshake(preferences, pipeBuffer + 1, 5, "RegisterAgent");
}

SENDER_FAILURE(EndsWith6AtTheProcess)
{
    const size_t preferences = pipeBuffer - versionBlob - longestRegisterAgent - 100;
    DieDuringHandshake(preferences, pipeBuffer + 1, 6, "RegisterProcess");
}

SENDER_FAILURE(EndsWith7InTheMiddleOfAQueuedBlob)
{
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    agent.TvnLogMessageANSI(std::string(2 * pipeBuffer, 'x').c_str());
    for (int i = 0; i < 100; ++i)
    {
        agent.TvnSetIntPreferences(1, i);
    }
    Signal("pushed");
    ExpectReceiverEnd(8);
    ExpectSenderEnd(7);
    ExpectErrorLines({});
    ExpectHostWorksAndShutsDown();
    ExpectErrorLines({});
    EXPECT_EQ(0u, CountInLog("Exiting sender thread"));
}

SENDER_FAILURE(EndsWith7AfterABridgeThatTookNothing)
{
    DieAfterTaking(0);
}

SENDER_FAILURE(EndsWith7AfterABridgeThatTookTheVersion)
{
    DieAfterTaking(1);
}

SENDER_FAILURE(EndsWith7AfterABridgeThatTookTheProjectPreferences)
{
    DieAfterTaking(2);
}

SENDER_FAILURE(EndsWith7AfterABridgeThatTookTheAgent)
{
    DieAfterTaking(3);
}

SENDER_FAILURE(EndsWith7AfterABridgeThatTookTheProcess)
{
    DieAfterTaking(4);
}

SENDER_FAILURE(EndsWith0AtTheStopMark)
{
    UseDefaultBridge();
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    Shutdown();
    ExpectSenderEnd(0);
    ExpectReceiverEnd(8);
    ExpectErrorLines({});
    EXPECT_EQ(1u, CountInLog("Exiting sender thread"));
    EXPECT_EQ(0u, CountInLog("WriteFile() failed."));
}

SENDER_FAILURE(IsSilentWhenShutdownCancelsTheWrite)
{
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    agent.TvnLogMessageANSI(std::string(2 * pipeBuffer, 'x').c_str());
    agent.TvnLogMessageANSI("never sent");
    EXPECT_TRUE(Await("sender blocked"));
    Shutdown();
    Signal("shut down");
    ExpectSenderEnd(7);
    ExpectReceiverEnd(8);
    EXPECT_EQ(std::vector<uint32_t>(2, ERROR_OPERATION_ABORTED), PipeErrors());
    ExpectErrorLines({});
}

SENDER_FAILURE(IsLoggedWhenTheReaderHasClosed)
{
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectReceiverEnd(8);
    EXPECT_TRUE(WaitForBridge());
    agent.TvnLogMessageANSI("nobody reads this");
    ExpectSenderEnd(7);
    EXPECT_EQ((std::vector<uint32_t>{ERROR_BROKEN_PIPE, closedPipeError}), PipeErrors());
    EXPECT_EQ(1u, CountInLog("Failed to send blob to bridge"));
}

SENDER_FAILURE(DoesNotHappenToWhatTheBridgeReadsDuringShutdown)
{
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    agent.TvnLogMessageANSI("read late");
    EXPECT_TRUE(Await("written"));
    const TestThread shutdown([this] { Library().TvnShutdown(); });
    ExpectReceiverEnd(8);
    EXPECT_FALSE(shutdown.HasEnded()) << "What is in the pipe has to be read first.";
    Signal("shutting down");
    EXPECT_TRUE(shutdown.WaitForEnd(testTimeout));
    LeaveAgentRunning(); // it has been shut down
    ExpectSenderEnd(0);
    ExpectErrorLines({});
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, SenderFailure, EndsWith3AtTheVersion)
{
    RawPipe agentPipe(agentPipePrefix, link.HostProcessId());
    ASSERT_TRUE(agentPipe);
    EXPECT_TRUE(Await("first pipe connected"));
    agentPipe.Close();
    EXPECT_TRUE(link.ConnectBridgePipe(testTimeout));
    EXPECT_TRUE(SendVersion(link));
    EXPECT_TRUE(Await("sender ended"));
    Die();
}

BRIDGE_SCENARIO_OF(RawPipeBridge, SenderFailure, DiesWhileTheSenderWrites)
{
    EXPECT_TRUE(SendVersion(link));
    EXPECT_TRUE(agentPipe.WaitForBytes(AwaitNumber("blocked")));
    Die();
}

BRIDGE_SCENARIO_OF(RawPipeBridge, SenderFailure, EndsWith7InTheMiddleOfAQueuedBlob)
{
    Register();
    EXPECT_TRUE(Await("pushed"));
    EXPECT_TRUE(agentPipe.WaitForBytes(0x40000));
    EXPECT_EQ(0x1000u, agentPipe.Read(0x1000).size());
    Die();
}

BRIDGE_SCENARIO_OF(RawPipeBridge, SenderFailure, TakesSomeBlobsAndDies)
{
    const uint64_t count = AwaitNumber("count");
    for (uint64_t i = 0; i < count; ++i)
    {
        EXPECT_FALSE(agentPipe.ReadBlob().empty());
    }
    EXPECT_TRUE(Await("sender ready"));
    Die();
}

BRIDGE_SCENARIO_OF(RawPipeBridge, SenderFailure, IsSilentWhenShutdownCancelsTheWrite)
{
    Register();
    EXPECT_TRUE(agentPipe.WaitForBytes(0x40000));
    Signal("sender blocked");
    EXPECT_TRUE(Await("shut down"));
}

BRIDGE_SCENARIO(SenderFailure, IsLoggedWhenTheReaderHasClosed)
{
    Die();
}

BRIDGE_SCENARIO_OF(RawPipeBridge, SenderFailure, DoesNotHappenToWhatTheBridgeReadsDuringShutdown)
{
    Register();
    EXPECT_TRUE(agentPipe.WaitForBytes(8 + 8 + sizeof("read late")));
    Signal("written");
    EXPECT_TRUE(Await("shutting down"));
    const Received<LogBlob> log(Message(Direction::FromAgent, 0, agentPipe.ReadBlob()));
    ASSERT_TRUE(log);
    EXPECT_EQ("read late", log.AnsiString(log->text));
    EXPECT_TRUE(agentPipe.ReadBlob().empty()) << "The pipe is closed after it.";
}

#endif
