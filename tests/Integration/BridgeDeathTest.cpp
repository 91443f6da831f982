#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A Bridge whose process ends, seen by the Agent as the reader: at every boundary of what it sends. The host goes
// on each time and shuts down.

#if TORVANE_HOST_HALF

namespace
{
class BridgeDeathTest : public LinkTest
{
protected:
    /// The receiver ends and logs nothing more than the status, the host continues, and its next call ends the
    /// sender. It shuts down.
    void ExpectDeath(TvnConnectionStatus status, uint32_t receiverResult)
    {
        ExpectStatus(status);
        ExpectReceiverEnd(receiverResult);
        ExpectHostWorksAndShutsDown();
        ExpectSenderEnd(7);
        ExpectErrorLines({});
        ExpectStatus(status);
    }
};
} // namespace

#define BRIDGE_DEATH(Name) HOST_TEST_OF(BridgeDeathTest, BridgeDeath, Name)

BRIDGE_DEATH(BeforeConnecting)
{
    UseOwnAgentFolder();
    StartWatchedAgent();
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(11);
    ExpectErrorLines({"Failed to wait for sender pipe", "Failed to wait for receiver pipe"});
    EXPECT_EQ(2u, CountInLog("ConnectNamedPipe failed."));
    ExpectHostWorksAndShutsDown();
    ExpectSenderEnd(3);
    EXPECT_EQ(0u, CountInLog("Sender thread ready"));
    ExpectErrorLines({"Failed to wait for sender pipe", "Failed to wait for receiver pipe",
                      "Failed to send Version blob"});
}

BRIDGE_DEATH(BetweenTheTwoPipes)
{
    UseOwnAgentFolder();
    StartWatchedAgent();
    WaitForFirstPipe();
    Signal("first pipe connected");
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(11);
    ExpectErrorLines({"Failed to wait for receiver pipe"});
    ExpectHostWorksAndShutsDown();
    ExpectSenderEnd(3);
    ExpectErrorLines({"Failed to wait for receiver pipe", "Failed to send Version blob"});
}

BRIDGE_DEATH(WithTheSecondPipeAlone)
{
    UseOwnAgentFolder();
    StartWatchedAgent();
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(11);
    ExpectErrorLines({"Failed to wait for sender pipe"});
    Signal("failed");
    ExpectHostWorksAndShutsDown();
    ExpectSenderEnd(3);
    ExpectErrorLines({"Failed to wait for sender pipe", "Failed to send Version blob"});
}

// All of these end before a whole `Version` was read.

BRIDGE_DEATH(BeforeItsVersion)
{
    StartWatchedAgent();
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    Signal("connected");
    ExpectDeath(ConnectionFailed, 8);
}

BRIDGE_DEATH(WithinTheHeaderOfItsVersion)
{
    StartWatchedAgent();
    ExpectDeath(ConnectionFailed, 8);
}

BRIDGE_DEATH(BetweenHeaderAndPayloadOfItsVersion)
{
    StartWatchedAgent();
    ExpectDeath(ConnectionFailed, 9);
}

BRIDGE_DEATH(WithinThePayloadOfItsVersion)
{
    StartWatchedAgent();
    ExpectDeath(ConnectionFailed, 9);
}

// A connection that has succeeded is lost without a report.

BRIDGE_DEATH(RightAfterItsVersion)
{
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    Signal("connected");
    ExpectDeath(ConnectionSucceeded, 8);
}

BRIDGE_DEATH(WithinTheHeaderOfACommand)
{
    StartWatchedAgent();
    ExpectDeath(ConnectionSucceeded, 8);
}

BRIDGE_DEATH(BetweenHeaderAndPayloadOfACommand)
{
    StartWatchedAgent();
    ExpectDeath(ConnectionSucceeded, 9);
    EXPECT_EQ(0u, CountInLog("Processing Blob::LogNarrow")) << "Half a command isn't executed.";
}

BRIDGE_DEATH(WithinThePayloadOfACommand)
{
    StartWatchedAgent();
    ExpectDeath(ConnectionSucceeded, 9);
    EXPECT_EQ(1u, CountInLog("Processing Blob::LogNarrow")) << "The command before it was complete.";
}

BRIDGE_DEATH(AfterCommandsThatAreStillExecuted)
{
    static uint32_t numbers[200];
    Publish("numbers", numbers);
    StartWatchedAgent();
    ExpectDeath(ConnectionSucceeded, 8);
    for (uint32_t i = 0; i < 200; ++i)
    {
        EXPECT_EQ(i + 1, numbers[i]);
    }
}

BRIDGE_DEATH(BeforeItTakesAReply)
{
    static uint32_t number = 1;
    Publish("number", &number);
    StartWatchedAgent();
    ExpectDeath(ConnectionSucceeded, 8);
    EXPECT_EQ(1u, CountInLog("Processing Blob::ReadMemory"));
}

// The two directions are independent of each other.

BRIDGE_DEATH(OfTheBridgePipeAloneLeavesTheSenderAtWork)
{
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectReceiverEnd(8);
    agent.TvnLogMessageANSI("still here");
    EXPECT_TRUE(Await("taken"));
    ExpectErrorLines({});
}

BRIDGE_DEATH(OfTheAgentPipeAloneLeavesTheReceiverAtWork)
{
    static volatile uint32_t number = 0;
    Publish("number", const_cast<const uint32_t*>(&number));
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(Await("agent pipe closed"));
    agent.TvnLogMessageANSI("lost");
    ExpectSenderEnd(7);
    ExpectErrorLines({});
    Signal("sender ended");
    EXPECT_TRUE(WaitUntil([] { return number == 7; })) << "Commands are executed without a sender.";
    Signal("executed");
    ExpectReceiverEnd(8);
    ExpectHostWorksAndShutsDown();
}

#else

namespace
{
const std::vector<uint8_t> wholeVersion = {10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, '2', '.', '4', '.', '0', 0};

std::vector<uint8_t> FirstBytes(const std::vector<uint8_t>& bytes, size_t count)
{
    return std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
}

std::vector<uint8_t> WholeCommand()
{
    BlobWriter<LogBlob> command;
    command.String(&LogBlob::text, std::string("to the debugger"));
    return command.Finish(BlobType::LogNarrow);
}

void SendNumber(Link& link, uint64_t address, uint32_t number)
{
    std::vector<uint8_t> bytes(sizeof(number));
    memcpy(bytes.data(), &number, sizeof(number));
    EXPECT_TRUE(SendWriteMemory(link, {address}, bytes));
}
} // namespace

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, BeforeConnecting)
{
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, BetweenTheTwoPipes)
{
    EXPECT_TRUE(link.ConnectAgentPipe(testTimeout));
    EXPECT_TRUE(Await("first pipe connected"));
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, WithTheSecondPipeAlone)
{
    EXPECT_TRUE(link.ConnectBridgePipe(testTimeout));
    EXPECT_TRUE(Await("failed"));
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, BeforeItsVersion)
{
    EXPECT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(Await("connected"));
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, WithinTheHeaderOfItsVersion)
{
    EXPECT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(link.Send(FirstBytes(wholeVersion, 4)));
    EXPECT_TRUE(WaitFor<RegisterProcessBlob>()) << "The Agent has begun to read.";
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, BetweenHeaderAndPayloadOfItsVersion)
{
    EXPECT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(link.Send(FirstBytes(wholeVersion, 8)));
    EXPECT_TRUE(WaitFor<RegisterProcessBlob>());
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, WithinThePayloadOfItsVersion)
{
    EXPECT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(link.Send(FirstBytes(wholeVersion, wholeVersion.size() - 1)));
    EXPECT_TRUE(WaitFor<RegisterProcessBlob>());
    Die();
}

BRIDGE_SCENARIO(BridgeDeath, RightAfterItsVersion)
{
    EXPECT_TRUE(Await("connected"));
    Die();
}

BRIDGE_SCENARIO(BridgeDeath, WithinTheHeaderOfACommand)
{
    EXPECT_TRUE(link.Send(FirstBytes(WholeCommand(), 7)));
    Die();
}

BRIDGE_SCENARIO(BridgeDeath, BetweenHeaderAndPayloadOfACommand)
{
    EXPECT_TRUE(link.Send(FirstBytes(WholeCommand(), 8)));
    Die();
}

BRIDGE_SCENARIO(BridgeDeath, WithinThePayloadOfACommand)
{
    EXPECT_TRUE(link.Send(WholeCommand()));
    EXPECT_TRUE(link.Send(FirstBytes(WholeCommand(), 20)));
    Die();
}

BRIDGE_SCENARIO(BridgeDeath, AfterCommandsThatAreStillExecuted)
{
    const uint64_t numbers = AwaitNumber("numbers");
    for (uint32_t i = 0; i < 200; ++i)
    {
        SendNumber(link, numbers + i * sizeof(uint32_t), i + 1);
    }
    Die();
}

BRIDGE_SCENARIO(BridgeDeath, BeforeItTakesAReply)
{
    EXPECT_TRUE(SendReadMemory(link, sizeof(uint32_t), {AwaitNumber("number")}, 1));
    Die();
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, OfTheBridgePipeAloneLeavesTheSenderAtWork)
{
    // A link of its own reads the agent pipe, so that the other pipe's can be closed alone.
    TestLink reader(link.HostProcessId());
    EXPECT_TRUE(reader.ConnectAgentPipe(testTimeout));
    EXPECT_TRUE(link.ConnectBridgePipe(testTimeout));
    EXPECT_TRUE(SendVersion(link));
    EXPECT_TRUE(reader.WaitFor<RegisterProcessBlob>(testTimeout));
    link.Close();
    const auto log = reader.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow);
    ASSERT_TRUE(log);
    EXPECT_EQ("still here", log.AnsiString(log->text));
    Signal("taken");
    StayUntilAgentGoes(reader);
}

BRIDGE_SCENARIO_OF(BridgeTest, BridgeDeath, OfTheAgentPipeAloneLeavesTheReceiverAtWork)
{
    TestLink reader(link.HostProcessId());
    EXPECT_TRUE(reader.ConnectAgentPipe(testTimeout));
    EXPECT_TRUE(link.ConnectBridgePipe(testTimeout));
    EXPECT_TRUE(SendVersion(link));
    EXPECT_TRUE(reader.WaitFor<RegisterProcessBlob>(testTimeout));
    reader.Close();
    Signal("agent pipe closed");
    EXPECT_TRUE(Await("sender ended"));
    SendNumber(link, AwaitNumber("number"), 7);
    EXPECT_TRUE(Await("executed"));
    Die();
}

#endif
