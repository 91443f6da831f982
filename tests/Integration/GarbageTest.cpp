#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <string.h>
#include <windows.h>

// What comes from the Bridge isn't checked, but some of it has an outcome all the same.

#if TORVANE_HOST_HALF

namespace
{
class GarbageTest : public LinkTest
{
protected:
    /// The Bridge half sends the bytes that are published as the first thing.
    void StartWithFirstBytes(const std::vector<uint8_t>& bytes)
    {
        UseScenario("Garbage.ComesFirst");
        PublishBytes("bytes", bytes);
        StartWatchedAgent();
    }

    void ExpectUnexpectedBlob(const std::vector<uint8_t>& bytes)
    {
        StartWithFirstBytes(bytes);
        ExpectStatus(UnexpectedVersionBlob);
        ExpectReceiverEnd(18);
        ExpectErrorLines({"Received unexpected Version blob type"});
        Signal("judged");
        ExpectHostWorksAndShutsDown();
        ExpectStatus(UnexpectedVersionBlob);
    }

    void ExpectMismatch(const std::vector<uint8_t>& bytes, const std::string& received)
    {
        StartWithFirstBytes(bytes);
        ExpectStatus(VersionMismatch);
        ExpectReceiverEnd(19);
        ExpectErrorLines({"Version mismatch detected: Broker running API version " + received +
                          ", expected API version 2.4.0"});
        Signal("judged");
        ExpectHostWorksAndShutsDown();
        ExpectStatus(VersionMismatch);
    }
};

std::vector<uint8_t> Header(uint32_t size, uint32_t type)
{
    return ByteImage().U32(0, size).U32(4, type).Bytes();
}

std::vector<uint8_t> Version(const std::string& text)
{
    return ByteImage(4).Text(0, text).Blob(0);
}
} // namespace

#define GARBAGE(Name) HOST_TEST_OF(GarbageTest, Garbage, Name)

GARBAGE(OfAnotherNumberFirstIsNoVersion)
{
    ExpectUnexpectedBlob(ByteImage(4).U32(0, 4).Blob(10));
}

GARBAGE(OfNoNumberFirstIsNoVersion)
{
    ExpectUnexpectedBlob(ByteImage(4).U32(0, 0xFFFFFFFF).Blob(0xFFFFFFFF));
}

GARBAGE(WithoutAPayloadFirstIsNoVersion)
{
    ExpectUnexpectedBlob(Header(0, 76));
}

GARBAGE(OfAVersionsContentButAnotherNumberIsNoVersion)
{
    ExpectUnexpectedBlob(ByteImage(4).Text(0, std::string(apiVersion)).Blob(1));
}

GARBAGE(OfRandomBytesFirstIsNoVersion)
{
    std::vector<uint8_t> bytes = Header(2048, 0);
    uint32_t state = 2463534242; // xorshift
    while (bytes.size() < 8 + 2048)
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes.push_back(static_cast<uint8_t>(state));
    }
    memcpy(&bytes[4], &bytes[8], 4); // the number is a random one, too; the size says how much to read
    ExpectUnexpectedBlob(bytes);
}

GARBAGE(WithAVersionOfNoTextIsAMismatch)
{
    ExpectMismatch(Version(""), "");
}

GARBAGE(WithALongerVersionIsAMismatch)
{
    ExpectMismatch(Version("2.4.0 "), "2.4.0 ");
}

GARBAGE(WithAShorterVersionIsAMismatch)
{
    ExpectMismatch(Version("2.4."), "2.4.");
}

GARBAGE(WithAVersionLongerThanAnyTextIsAMismatch)
{
    ExpectMismatch(Version(std::string(3000, '2')), std::string(3000, '2'));
}

GARBAGE(WithTheVersionsTextElsewhereIsGood)
{
    const std::vector<uint8_t> bytes =
        ByteImage(100).Put(4, "9.9.9", 6).Text(0, std::string(apiVersion)).Blob(0);
    StartWithFirstBytes(bytes);
    ExpectStatus(ConnectionSucceeded);
    Signal("judged");
    ExpectReceiverEnd(8);
    ExpectHostWorksAndShutsDown();
}

GARBAGE(OfASizeThatNobodyHasMemoryForIsNotRead)
{
    StartWithFirstBytes(Header(0xFFFFFFF0, 0));
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(9);
    EXPECT_EQ(1u, CountInLog("Failed to receive blob from bridge"));
    Signal("judged");
    ExpectHostWorksAndShutsDown();
    ExpectStatus(ConnectionFailed);
}

GARBAGE(OfASizeThatNobodySendsIsWaitedFor)
{
    StartWithFirstBytes(Header(0x100000, 0));
    EXPECT_TRUE(Await("taken"));
    EXPECT_EQ(0u, CountInLog("Thread 'Torvane receiver' exited with result 9"));
    Signal("judged");
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(9);
    ExpectErrorLines({});
    ExpectHostWorksAndShutsDown();
}

GARBAGE(LaterEndsTheReceiverAlone)
{
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    ExpectReceiverEnd(0);
    ExpectErrorLines({"Unknown blob type 0"});
    EXPECT_EQ(1u, CountInLog("Exiting receiver thread"));
    EXPECT_EQ(1u, CountInLog("Processing Blob::FlushInstructionCache"));
    EXPECT_EQ(0u, CountInLog("Processing Blob::Synchronize")) << "Nothing after it is executed.";
    Signal("judged");
    ExpectHostWorksAndShutsDown();
    ExpectStatus(ConnectionSucceeded);
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, Garbage, ComesFirst)
{
    EXPECT_TRUE(link.Connect(testTimeout));
    EXPECT_TRUE(link.Send(AwaitBytes("bytes")));
    EXPECT_TRUE(WaitFor<RegisterProcessBlob>()) << "The Agent registers all the same.";
    Signal("taken");
    EXPECT_TRUE(Await("judged"));
    EXPECT_FALSE(link.IsClosed()) << "The sender continues.";
    Die();
}

BRIDGE_SCENARIO(Garbage, LaterEndsTheReceiverAlone)
{
    // The handlers of these two are called on an empty payload and don't look at it.
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::FlushInstructionCache, nullptr, 0)));
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::Version, nullptr, 0)));
    EXPECT_TRUE(link.Send(MakeBlob(BlobType::Synchronize, nullptr, 0)));
    EXPECT_TRUE(Await("judged"));
    EXPECT_FALSE(link.IsClosed()) << "The sender continues.";
    Die();
}

#endif
