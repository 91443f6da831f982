#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// EchoRequest, ReadMemory, WriteMemory and CopyMemory.

#if TORVANE_HOST_HALF

namespace
{
struct Numbers
{
    uint32_t first = 0x11223344;
    uint32_t second = 0x55667788;
    uint32_t third = 0x99AABBCC;
};

volatile uint32_t* Watched(uint32_t& number)
{
    return &number;
}
} // namespace

HOST_TEST(MemoryBlobs, EchoIsAnsweredAfterEarlierCommands)
{
    static const Numbers numbers;
    Publish("first", &numbers.first);
    ConnectDefaultAgent();
}

HOST_TEST(MemoryBlobs, ReadsElementsInOrderAndSkipsNullAddresses)
{
    static const Numbers numbers;
    Publish("first", &numbers.first);
    Publish("second", &numbers.second);
    Publish("third", &numbers.third);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("read"));
    EXPECT_EQ(2u, CountInLog("Processing Blob::ReadMemory"));
    EXPECT_EQ(0u, CountInLog("Processing Blob::EchoRequest"));
}

HOST_TEST(MemoryBlobs, ReadsMoreThanAPipeBufferHolds)
{
    static uint8_t bytes[0x50000];
    for (size_t i = 0; i < sizeof(bytes); ++i)
    {
        bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
    }
    Publish("bytes", bytes);
    Publish("size", uint64_t(sizeof(bytes)));
    ConnectDefaultAgent();
}

HOST_TEST(MemoryBlobs, WritesElementsWhereTheyBelong)
{
    static Numbers numbers;
    Publish("first", &numbers.first);
    Publish("third", &numbers.third);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("written"));
    EXPECT_EQ(0x04030201u, *Watched(numbers.first));
    EXPECT_EQ(0x55667788u, *Watched(numbers.second));
    EXPECT_EQ(0x08070605u, *Watched(numbers.third));
    EXPECT_EQ(1u, CountInLog("Processing Blob::WriteMemory"));
}

HOST_TEST(MemoryBlobs, CopiesElementsInOrder)
{
    static Numbers numbers;
    Publish("first", &numbers.first);
    Publish("second", &numbers.second);
    Publish("third", &numbers.third);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("copied"));
    EXPECT_EQ(0x11223344u, *Watched(numbers.first));
    EXPECT_EQ(0x11223344u, *Watched(numbers.second));
    EXPECT_EQ(0x11223344u, *Watched(numbers.third))
        << "The second element is copied from the first one's target.";
    EXPECT_EQ(1u, CountInLog("Processing Blob::CopyMemory"));
}

#else

BRIDGE_SCENARIO(MemoryBlobs, EchoIsAnsweredAfterEarlierCommands)
{
    ASSERT_TRUE(SendReadMemory(link, 4, {AwaitNumber("first")}, 1));
    ASSERT_TRUE(SendEchoRequest(link, 0x0123456789ABCDEF));
    EXPECT_EQ(BlobType::ReadMemoryResult, Receive().Type());
    EXPECT_EQ(ByteImage(8).U64(0, 0x0123456789ABCDEF).Blob(75), Receive().Bytes());
}

BRIDGE_SCENARIO(MemoryBlobs, ReadsElementsInOrderAndSkipsNullAddresses)
{
    const std::vector<AddressSlot> addresses = {AwaitNumber("third"), 0, AwaitNumber("first"),
                                                AwaitNumber("second")};
    ASSERT_TRUE(SendReadMemory(link, 4, addresses, 0xFEDCBA9876543210));
    auto reply = WaitFor<ReadMemoryResultBlob>();
    ASSERT_TRUE(reply);
    std::vector<uint8_t> bytes = reply.Bytes();
    ASSERT_EQ(8u + 24u + 16u, bytes.size());
    memset(bytes.data() + 8 + 24 + 4, 0, 4); // that of the null address is undefined
    ByteImage expected(24 + 16);
    expected.U64(0, 16).U32(8, 16).U64(16, 0xFEDCBA9876543210);
    expected.U32(24, 0x99AABBCC).U32(32, 0x11223344).U32(36, 0x55667788);
    EXPECT_EQ(expected.Blob(26), bytes);

    ASSERT_TRUE(SendReadMemory(link, 4, {}, 5));
    reply = WaitFor<ReadMemoryResultBlob>();
    EXPECT_EQ(ByteImage(24).U32(8, 16).U64(16, 5).Blob(26), reply.Bytes());
    Signal("read");
}

BRIDGE_SCENARIO(MemoryBlobs, ReadsMoreThanAPipeBufferHolds)
{
    const uint64_t size = AwaitNumber("size");
    const AddressSlot address = AwaitNumber("bytes");
    ASSERT_TRUE(SendReadMemory(link, size, {address}, 1));
    const auto reply = WaitFor<ReadMemoryResultBlob>();
    ASSERT_TRUE(reply);
    EXPECT_EQ(size, reply->totalSize);
    const std::vector<uint8_t> expected = host.Read(address, size);
    EXPECT_EQ(size, expected.size());
    EXPECT_TRUE(expected == reply.Data(reply->data, reply->totalSize));
}

BRIDGE_SCENARIO(MemoryBlobs, WritesElementsWhereTheyBelong)
{
    ASSERT_TRUE(
        SendWriteMemory(link, {AwaitNumber("first"), AwaitNumber("third")}, {1, 2, 3, 4, 5, 6, 7, 8}));
    ExpectNoReply();
    Signal("written");
}

BRIDGE_SCENARIO(MemoryBlobs, CopiesElementsInOrder)
{
    const AddressSlot first = AwaitNumber("first");
    const AddressSlot second = AwaitNumber("second");
    ASSERT_TRUE(SendCopyMemory(link, 4, {first, second}, {second, AwaitNumber("third")}));
    ASSERT_TRUE(Fence());
    Signal("copied");
}

#endif
