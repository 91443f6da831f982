#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// What becomes of the memory of Blobs.

namespace
{
constexpr uint32_t payloadSize = 5003;
constexpr uint32_t textLength = 7001;
} // namespace

#if TORVANE_HOST_HALF

#include "Agent/Protocol/Blob.h"
#include "tests/Support/Integration/BlockTrace.h"

namespace
{
using Count = BlockTrace::Count;

const std::wstring longCommandLine(4000, L'c');

wchar_t* WINAPI GetLongCommandLine()
{
    return const_cast<wchar_t*>(longCommandLine.c_str());
}

class BlobMemoryTest : public LinkTest
{
protected:
    void Trace()
    {
        trace = new BlockTrace(Library().Module()); // for the rest of the process
    }

    /// Blobs that hold a text of that many bytes, and hardly more than a path beside it.
    static Count CountBlobsWithText(uint32_t length)
    {
        return BlockTrace::CountBlocks(length, length + 400 + MAX_PATH * sizeof(wchar_t));
    }

    const std::string text = std::string(textLength, 't');
    BlockTrace* trace = nullptr;
};
} // namespace

#define BLOB_MEMORY(Name) HOST_TEST_OF(BlobMemoryTest, BlobMemory, Name)

BLOB_MEMORY(OfPayloadsIsFreedWhenTheyAreHandled)
{
    Trace();
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(3u, CountInLog("Processing Blob::Synchronize"));
    EXPECT_EQ((Count{3, 0}), BlockTrace::CountBlocks(payloadSize));
}

BLOB_MEMORY(OfAFirstPayloadIsFreedToo)
{
    Trace();
    StartWatchedAgent();
    ExpectStatus(UnexpectedVersionBlob);
    ExpectReceiverEnd(18);
    EXPECT_EQ((Count{1, 0}), BlockTrace::CountBlocks(payloadSize));
}

BLOB_MEMORY(OfSentBlobsIsFreed)
{
    Trace();
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    agent.TvnLogMessageANSI(text.c_str());
    agent.TvnLogMessageANSI(text.c_str());
    EXPECT_TRUE(Await("checked"));
    EXPECT_TRUE(WaitUntil([] { return CountBlobsWithText(textLength).open == 0; }));
    EXPECT_EQ((Count{2, 0}), CountBlobsWithText(textLength));
}

BLOB_MEMORY(OfTheRegistrationIsFreedWhenTheSenderEnds)
{
    UseDefaultBridge();
    Trace();
    ReplaceImport("GetCommandLineW", GetLongCommandLine);
    const std::wstring preferences = L"C:\\" + std::wstring(697, L'p');
    ConnectDefaultAgent(preferences.c_str());
    EXPECT_TRUE(WaitForLog("Sender thread ready"));
    const auto countAll = [&] {
        constexpr uint32_t agentSize = sizeof(BlobHeader) + sizeof(RegisterAgentBlob);
        constexpr uint32_t preferencesSize = 2 * 700 + sizeof(BlobHeader) + sizeof(ProjectPreferencesRecord);
        return std::vector<Count>{BlockTrace::CountBlocks(preferencesSize, preferencesSize + 30),
                                  BlockTrace::CountBlocks(agentSize, agentSize + 30),
                                  CountBlobsWithText(static_cast<uint32_t>(2 * longCommandLine.size()))};
    };
    EXPECT_EQ(std::vector<Count>(3, Count{1, 1}), countAll());
    Shutdown();
    EXPECT_EQ(std::vector<Count>(3, Count{1, 0}), countAll());
}

BLOB_MEMORY(OfTheBlobThatCannotBeSentIsFreedAndOfThoseQueuedIsNot)
{
    Trace();
    TvnDefaultAgent& agent = StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    Signal("connected");
    ExpectReceiverEnd(8);
    agent.TvnLogMessageANSI(text.c_str());
    ExpectSenderEnd(7);
    EXPECT_EQ((Count{1, 0}), CountBlobsWithText(textLength));
    agent.TvnLogMessageANSI(text.c_str());
    agent.TvnLogMessageANSI(text.c_str());
    Shutdown();
    EXPECT_EQ((Count{3, 2}), CountBlobsWithText(textLength));
}

#else

namespace
{
bool SendLongBlob(Link& link)
{
    const std::vector<uint8_t> payload(payloadSize);
    return link.Send(MakeBlob(BlobType::Synchronize, payload.data(), payload.size()));
}
} // namespace

BRIDGE_SCENARIO(BlobMemory, OfPayloadsIsFreedWhenTheyAreHandled)
{
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(SendLongBlob(link));
    }
    ASSERT_TRUE(Fence());
}

BRIDGE_SCENARIO_OF(BridgeTest, BlobMemory, OfAFirstPayloadIsFreedToo)
{
    ASSERT_TRUE(link.Connect(testTimeout));
    ASSERT_TRUE(SendLongBlob(link));
    EXPECT_TRUE(link.WaitFor<RegisterProcessBlob>(testTimeout));
    StayUntilAgentGoes();
}

BRIDGE_SCENARIO(BlobMemory, OfSentBlobsIsFreed)
{
    for (int i = 0; i < 2; ++i)
    {
        const auto log = link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow);
        ASSERT_TRUE(log);
        EXPECT_EQ(textLength, log.AnsiString(log->text).size());
    }
}

BRIDGE_SCENARIO(BlobMemory, OfTheBlobThatCannotBeSentIsFreedAndOfThoseQueuedIsNot)
{
    ASSERT_TRUE(Await("connected"));
    Die();
}

#endif
