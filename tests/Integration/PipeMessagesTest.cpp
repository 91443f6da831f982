#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <algorithm>
#include <windows.h>

// The messages of a pipe and the Blobs need not coincide, in either direction.

#if TORVANE_HOST_HALF

namespace
{
constexpr uint32_t numberCount = 40;
uint32_t numbers[numberCount];
uint8_t block[0x60000];

class PipeMessagesTest : public LinkTest
{
protected:
    /// The Bridge half writes 1, 2, 3, ... to `numbers`, one command for each.
    void ExpectOrdersObeyed()
    {
        Publish("numbers", numbers);
        StartWatchedAgent();
        ExpectStatus(ConnectionSucceeded);
        EXPECT_TRUE(Await("executed"));
        for (uint32_t i = 0; i < numberCount; ++i)
        {
            EXPECT_EQ(i + 1, numbers[i]);
        }
        EXPECT_EQ(size_t(numberCount), CountInLog("Processing Blob::WriteMemory"));
        ExpectErrorLines({});
        EXPECT_EQ(0u, CountInLog("ReadFile() failed.")) << "A short read is no failure.";
    }
};
} // namespace

#define PIPE_MESSAGES(Name) HOST_TEST_OF(PipeMessagesTest, PipeMessages, Name)

PIPE_MESSAGES(CanHoldAllBlobsTogether)
{
    ExpectOrdersObeyed();
}

PIPE_MESSAGES(CanHoldOneByteEach)
{
    ExpectOrdersObeyed();
}

PIPE_MESSAGES(CanEndAnywhereInABlob)
{
    ExpectOrdersObeyed();
}

PIPE_MESSAGES(CanSplitHeaderAndPayload)
{
    ExpectOrdersObeyed();
}

PIPE_MESSAGES(CanBeEmptyInBetween)
{
    ExpectOrdersObeyed();
}

PIPE_MESSAGES(CanBeLongerThanThePipesBuffer)
{
    Publish("block", block);
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    EXPECT_TRUE(Await("executed"));
    for (size_t i = 0; i < sizeof(block); ++i)
    {
        ASSERT_EQ(static_cast<uint8_t>(i * 7), block[i]) << i;
    }
    ExpectErrorLines({});
}

PIPE_MESSAGES(OfTheAgentHoldOneBlobEach)
{
    TvnDefaultAgent& agent = StartWatchedAgent();
    agent.TvnLogMessageANSI("");
    agent.TvnLogMessage(L"two");
    agent.TvnLogMessageANSI(std::string(0x60000, 'x').c_str());
    agent.TvnSetBoolPreferences(1, true);
    ExpectStatus(ConnectionSucceeded);
    Signal("pushed");
    EXPECT_TRUE(Await("counted"));
    Shutdown();
    Signal("shut down");
}

#else

namespace
{
using Bytes = std::vector<uint8_t>;

void Append(Bytes& all, const Bytes& bytes)
{
    all.insert(all.end(), bytes.begin(), bytes.end());
}

/// `Version` and the 40 commands after it, as one sequence of bytes.
Bytes VersionAndCommands(uint64_t numbers)
{
    Bytes all = ByteImage(4).Text(0, std::string(apiVersion)).Blob(0);
    for (uint32_t i = 0; i < 40; ++i)
    {
        const uint32_t number = i + 1;
        BlobWriter<WriteMemoryBlob> command;
        command.fixed.elementSize = sizeof(number);
        command.fixed.elementCount = 1;
        command.List(&WriteMemoryBlob::addresses, std::vector<AddressSlot>{numbers + i * sizeof(number)});
        command.List(&WriteMemoryBlob::data, ByteImage().U32(0, number).Bytes());
        Append(all, command.Finish());
    }
    return all;
}

/// Sends the bytes in messages of `size` each; the last one may be shorter.
void SendInPieces(Link& link, const Bytes& bytes, size_t size)
{
    for (size_t begin = 0; begin < bytes.size(); begin += size)
    {
        const size_t end = std::min(begin + size, bytes.size());
        ASSERT_TRUE(link.Send(Bytes(bytes.begin() + static_cast<ptrdiff_t>(begin),
                                    bytes.begin() + static_cast<ptrdiff_t>(end))));
    }
}

/// Where each Blob of a row begins, and the end.
std::vector<size_t> FindBlobs(const Bytes& bytes)
{
    std::vector<size_t> begins = {0};
    while (begins.back() < bytes.size())
    {
        BlobHeader header;
        memcpy(&header, bytes.data() + begins.back(), sizeof(header));
        begins.push_back(begins.back() + sizeof(header) + header.size);
    }
    return begins;
}
} // namespace

BRIDGE_SCENARIO_OF(BridgeTest, PipeMessages, CanHoldAllBlobsTogether)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(link.Send(VersionAndCommands(AwaitNumber("numbers"))));
    EXPECT_TRUE(Fence());
    Signal("executed");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, PipeMessages, CanHoldOneByteEach)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    SendInPieces(link, VersionAndCommands(AwaitNumber("numbers")), 1);
    EXPECT_TRUE(Fence());
    Signal("executed");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, PipeMessages, CanEndAnywhereInABlob)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    // No multiple of a Blob's size, so that the ends move through header and payload.
    SendInPieces(link, VersionAndCommands(AwaitNumber("numbers")), 61);
    EXPECT_TRUE(Fence());
    Signal("executed");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, PipeMessages, CanSplitHeaderAndPayload)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    const Bytes bytes = VersionAndCommands(AwaitNumber("numbers"));
    const std::vector<size_t> begins = FindBlobs(bytes);
    for (size_t i = 0; i + 1 < begins.size(); ++i)
    {
        const auto begin = bytes.begin() + static_cast<ptrdiff_t>(begins[i]);
        const auto end = bytes.begin() + static_cast<ptrdiff_t>(begins[i + 1]);
        ASSERT_TRUE(link.Send(Bytes(begin, begin + 8)));
        ASSERT_TRUE(link.Send(Bytes(begin + 8, end)));
    }
    EXPECT_TRUE(Fence());
    Signal("executed");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO_OF(BridgeTest, PipeMessages, CanBeEmptyInBetween)
{
    ASSERT_TRUE(link.ConnectAgentPipe(testTimeout));
    RawPipe bridgePipe(bridgePipePrefix, link.HostProcessId());
    ASSERT_TRUE(bridgePipe);
    const Bytes bytes = VersionAndCommands(AwaitNumber("numbers"));
    for (size_t begin = 0; begin < bytes.size(); begin += 50)
    {
        const size_t end = std::min(begin + 50, bytes.size());
        ASSERT_TRUE(bridgePipe.Write({}));
        ASSERT_TRUE(bridgePipe.Write(Bytes(bytes.begin() + static_cast<ptrdiff_t>(begin),
                                           bytes.begin() + static_cast<ptrdiff_t>(end))));
    }
    EXPECT_TRUE(bridgePipe.Write(BlobWriter<EchoRequestBlob>().Finish()));
    EXPECT_TRUE(WaitFor<EchoReplyBlob>());
    Signal("executed");
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO(PipeMessages, CanBeLongerThanThePipesBuffer)
{
    Bytes data(0x60000);
    for (size_t i = 0; i < data.size(); ++i)
    {
        data[i] = static_cast<uint8_t>(i * 7);
    }
    EXPECT_TRUE(SendWriteMemory(link, {AwaitNumber("block")}, data));
    EXPECT_TRUE(Fence());
    Signal("executed");
}

BRIDGE_SCENARIO_OF(RawPipeBridge, PipeMessages, OfTheAgentHoldOneBlobEach)
{
    EXPECT_TRUE(SendVersion(link));
    EXPECT_TRUE(Await("pushed"));
    for (int i = 0; i < 8; ++i)
    {
        const Bytes message = agentPipe.ReadMessage(0x80000);
        ASSERT_LE(sizeof(BlobHeader), message.size());
        BlobHeader header;
        memcpy(&header, message.data(), sizeof(header));
        EXPECT_EQ(sizeof(header) + header.size, message.size());
    }
    Signal("counted");
    EXPECT_TRUE(Await("shut down"));
}

#endif
