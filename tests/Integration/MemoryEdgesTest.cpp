#include "tests/Support/ByteImage.h"
#include "tests/Support/FaultCatcher.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// ReadMemory, WriteMemory and CopyMemory where it gets unusual: sizes, addresses, pages that refuse.

namespace
{
constexpr uint32_t hugeSize = 6 * 1024 * 1024 + 5;

[[maybe_unused]] uint8_t PatternAt(size_t i)
{
    return static_cast<uint8_t>(i * 11 + (i >> 8) * 3 + (i >> 16));
}
} // namespace

#if TORVANE_HOST_HALF

namespace
{
uint8_t* AllocatePages(size_t size, DWORD protection)
{
    return static_cast<uint8_t*>(VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, protection));
}

DWORD ProtectionOf(const void* address)
{
    MEMORY_BASIC_INFORMATION region = {};
    VirtualQuery(address, &region, sizeof(region));
    return region.Protect;
}

void Protect(void* address, size_t size, DWORD protection)
{
    DWORD before = 0;
    EXPECT_TRUE(VirtualProtect(address, size, protection, &before));
}

bool HoldsPattern(const uint8_t* bytes, size_t size)
{
    for (size_t i = 0; i < size; ++i)
    {
        if (bytes[i] != PatternAt(i))
        {
            return false;
        }
    }
    return true;
}

/// 64 bytes of the pattern, for the Agent to read and to write over.
uint8_t* PatternBytes()
{
    static volatile uint8_t bytes[64];
    for (size_t i = 0; i < sizeof(bytes); ++i)
    {
        bytes[i] = PatternAt(i);
    }
    return const_cast<uint8_t*>(bytes);
}

std::vector<uint8_t> BytesAt(const uint8_t* address, size_t size)
{
    return std::vector<uint8_t>(address, address + size);
}
} // namespace

/// The host has 64 bytes of the pattern; the Bridge half checks all.
#define MEMORY_TEST_OF_PATTERN_BYTES(Name)                   \
    HOST_TEST(MemoryEdges, Name)                             \
    {                                                        \
        Publish("bytes", PatternBytes());                    \
        StartDefaultAgent();                                 \
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection()); \
        EXPECT_TRUE(Await("checked"));                       \
        ExpectNoErrorsInLog();                               \
    }

MEMORY_TEST_OF_PATTERN_BYTES(ReadsElementsOfEverySize)
MEMORY_TEST_OF_PATTERN_BYTES(ReadsElementsOfNoBytesAtAll)
MEMORY_TEST_OF_PATTERN_BYTES(ReadsALongListOfElements)
MEMORY_TEST_OF_PATTERN_BYTES(ReadsByTheLowerHalfOfAnAddress)
MEMORY_TEST_OF_PATTERN_BYTES(ReadsNothingOfTheBytesInBetween)
MEMORY_TEST_OF_PATTERN_BYTES(WritesElementsOfEverySize)
MEMORY_TEST_OF_PATTERN_BYTES(WritesElementsOfNoBytesToAnyAddress)
MEMORY_TEST_OF_PATTERN_BYTES(WritesTheLastElementLast)
MEMORY_TEST_OF_PATTERN_BYTES(WritesByTheLowerHalvesOfAddressesAndSize)
MEMORY_TEST_OF_PATTERN_BYTES(CopiesElementsOfEverySize)
MEMORY_TEST_OF_PATTERN_BYTES(CopiesElementsOfNoBytesToAnyAddress)
MEMORY_TEST_OF_PATTERN_BYTES(CopiesElementsOntoThemselves)
MEMORY_TEST_OF_PATTERN_BYTES(CopiesOneElementAfterAnother)
MEMORY_TEST_OF_PATTERN_BYTES(CopiesByTheLowerHalvesOfAddresses)

HOST_TEST(MemoryEdges, ReadsWritesAndCopiesMegabytes)
{
    uint8_t* source = AllocatePages(hugeSize, PAGE_READWRITE);
    uint8_t* written = AllocatePages(hugeSize, PAGE_READWRITE);
    uint8_t* copied = AllocatePages(hugeSize, PAGE_READWRITE);
    ASSERT_TRUE(source != nullptr && written != nullptr && copied != nullptr);
    for (size_t i = 0; i < hugeSize; ++i)
    {
        source[i] = PatternAt(i);
    }
    Publish("source", source);
    Publish("written", written);
    Publish("copied", copied);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_TRUE(HoldsPattern(written, hugeSize));
    EXPECT_TRUE(HoldsPattern(copied, hugeSize));
}

HOST_TEST(MemoryEdges, ReadsCodeThatNobodyCanWrite)
{
    static const uint8_t code[] = {0xB8, 0x2A, 0x00, 0x00, 0x00, 0xC3};
    uint8_t* page = AllocatePages(1, PAGE_READWRITE);
    memcpy(page, code, sizeof(code));
    Protect(page, 1, PAGE_EXECUTE_READ);
    Publish("code", page);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(DWORD(PAGE_EXECUTE_READ), ProtectionOf(page));
}

HOST_TEST(MemoryEdges, ReadingABadAddressFaultsOnTheReceiverThread)
{
    uint8_t* page = AllocatePages(1, PAGE_READWRITE);
    page[5] = 0x5A;
    Protect(page, 1, PAGE_NOACCESS);
    const FaultCatcher catcher(page, 4096, FaultCatcher::MakeWritable);
    Publish("address", page + 5);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const Fault fault = catcher.Caught();
    EXPECT_EQ(1u, fault.count);
    EXPECT_EQ(AwaitNumber("receiver thread"), fault.threadId);
    EXPECT_FALSE(fault.write);
    EXPECT_EQ(page + 5, fault.address);
}

HOST_TEST(MemoryEdges, WritingToAReadOnlyPageFaultsOnTheReceiverThread)
{
    uint8_t* page = AllocatePages(1, PAGE_READONLY);
    const FaultCatcher catcher(page, 4096, FaultCatcher::MakeWritable);
    Publish("address", page + 7);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const Fault fault = catcher.Caught();
    EXPECT_EQ(1u, fault.count);
    EXPECT_EQ(AwaitNumber("receiver thread"), fault.threadId);
    EXPECT_TRUE(fault.write);
    EXPECT_EQ(page + 7, fault.address);
    EXPECT_EQ(0xA5, page[7]);
}

HOST_TEST(MemoryEdges, CopyingToAReadOnlyPageFaultsOnTheReceiverThread)
{
    uint8_t* page = AllocatePages(1, PAGE_READONLY);
    const FaultCatcher catcher(page, 4096, FaultCatcher::MakeWritable);
    Publish("bytes", PatternBytes());
    Publish("address", page + 9);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    const Fault fault = catcher.Caught();
    EXPECT_EQ(1u, fault.count);
    EXPECT_EQ(AwaitNumber("receiver thread"), fault.threadId);
    EXPECT_TRUE(fault.write);
    EXPECT_EQ(page + 9, fault.address);
    EXPECT_EQ(BytesAt(PatternBytes(), 1), BytesAt(page + 9, 1));
}

HOST_TEST(MemoryEdges, WritingToANullAddressFaults)
{
    const FaultCatcher catcher(nullptr, 4096, FaultCatcher::KeepThread);
    StartDefaultAgent();
    EXPECT_TRUE(WaitUntil([&] { return catcher.Caught().count != 0; }));
    EXPECT_EQ(AwaitNumber("receiver thread"), catcher.Caught().threadId);
    EXPECT_TRUE(catcher.Caught().write);
    EXPECT_EQ(1u, CountInLog("Processing Blob::WriteMemory"));
    Signal("faulted");
    LeaveAgentRunning();
}

HOST_TEST(MemoryEdges, CopyingFromANullAddressFaults)
{
    const FaultCatcher catcher(nullptr, 4096, FaultCatcher::KeepThread);
    Publish("bytes", PatternBytes());
    StartDefaultAgent();
    EXPECT_TRUE(WaitUntil([&] { return catcher.Caught().count != 0; }));
    EXPECT_EQ(AwaitNumber("receiver thread"), catcher.Caught().threadId);
    EXPECT_FALSE(catcher.Caught().write);
    EXPECT_EQ(1u, CountInLog("Processing Blob::CopyMemory"));
    Signal("faulted");
    LeaveAgentRunning();
}

#else

namespace
{
constexpr AddressSlot upperHalf = 0x8765432100000000;

std::vector<uint8_t> Pattern(size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
    {
        bytes[i] = PatternAt(i);
    }
    return bytes;
}

class MemoryBridge : public ConnectedBridgeTest
{
protected:
    /// The elements of the reply to a ReadMemory.
    std::vector<uint8_t> Elements(uint64_t elementSize, const std::vector<AddressSlot>& addresses)
    {
        const uint64_t token = ++lastToken * 0x0100000001000001;
        EXPECT_TRUE(SendReadMemory(link, elementSize, addresses, token));
        const auto reply = WaitFor<ReadMemoryResultBlob>();
        if (!reply)
        {
            ADD_FAILURE() << "No ReadMemoryResult has come.";
            return {};
        }
        EXPECT_EQ(token, reply->token);
        EXPECT_EQ(elementSize * addresses.size(), reply->totalSize);
        EXPECT_EQ(sizeof(ReadMemoryResultBlob) + elementSize * addresses.size(), reply.PayloadSize());
        return reply.Data(reply->data, reply->totalSize);
    }

private:
    uint64_t lastToken = 0;
};

std::vector<uint8_t> Part(const std::vector<uint8_t>& bytes, size_t offset, size_t size)
{
    return std::vector<uint8_t>(bytes.begin() + ptrdiff_t(offset), bytes.begin() + ptrdiff_t(offset + size));
}

const std::vector<size_t> elementSizes = {1, 2, 3, 4, 5, 7, 8, 12, 13, 16};
} // namespace

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsElementsOfEverySize)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    const std::vector<uint8_t> pattern = Pattern(64);
    for (const size_t size : elementSizes)
    {
        std::vector<uint8_t> expected = Part(pattern, 17, size);
        const std::vector<uint8_t> second = Part(pattern, 1, size);
        const std::vector<uint8_t> third = Part(pattern, 64 - size, size);
        expected.insert(expected.end(), second.begin(), second.end());
        expected.insert(expected.end(), third.begin(), third.end());
        EXPECT_EQ(expected, Elements(size, {bytes + 17, bytes + 1, bytes + 64 - size})) << "Size " << size;
    }
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsElementsOfNoBytesAtAll)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    EXPECT_TRUE(Elements(0, {bytes, 0, bytes}).empty());
    EXPECT_TRUE(Elements(0, {}).empty());
    EXPECT_TRUE(Elements(0xFFFFFFFFFFFFFFFF, {}).empty());
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsALongListOfElements)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    const std::vector<uint8_t> pattern = Pattern(64);
    std::vector<AddressSlot> addresses;
    std::vector<uint8_t> expected;
    for (uint32_t i = 0; i < 20000; ++i)
    {
        const size_t offset = i * 29 % 62;
        addresses.push_back(bytes + offset);
        expected.insert(expected.end(), pattern.begin() + ptrdiff_t(offset),
                        pattern.begin() + ptrdiff_t(offset + 3));
    }
    EXPECT_TRUE(expected == Elements(3, addresses));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsByTheLowerHalfOfAnAddress)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    const std::vector<uint8_t> elements =
        Elements(4, {bytes | upperHalf, upperHalf, (bytes + 4) | upperHalf});
    ASSERT_EQ(12u, elements.size());
    EXPECT_EQ(Pattern(4), Part(elements, 0, 4));
    EXPECT_EQ(Part(Pattern(8), 4, 4), Part(elements, 8, 4))
        << "An address of which only the upper half isn't "
           "0 is null.";
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsNothingOfTheBytesInBetween)
{
    BlobWriter<ReadMemoryBlob> blob;
    memset(&blob.fixed, 0xEE, sizeof(blob.fixed));
    blob.fixed.elementSize = 4;
    blob.fixed.elementCount = 1;
    blob.fixed.token = 0xFFFFFFFFFFFFFFFF;
    blob.List(&ReadMemoryBlob::addresses, std::vector<AddressSlot>{AwaitNumber("bytes")});
    EXPECT_TRUE(link.Send(blob.Finish()));
    ByteImage expected(24);
    expected.U64(0, 4).U32(8, 16).U64(16, 0xFFFFFFFFFFFFFFFF).Put(24, Pattern(4).data(), 4);
    EXPECT_EQ(expected.Blob(26), Receive().Bytes());
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, WritesElementsOfEverySize)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    for (const size_t size : elementSizes)
    {
        std::vector<uint8_t> expected = host.Read(bytes, 64);
        ASSERT_EQ(64u, expected.size());
        std::vector<uint8_t> data(3 * size);
        const size_t offsets[] = {33, 1, 64 - size};
        std::vector<AddressSlot> addresses;
        for (size_t i = 0; i < data.size(); ++i)
        {
            data[i] = static_cast<uint8_t>(0x80 + size * 5 + i);
            expected[offsets[i / size] + i % size] = data[i];
        }
        for (const size_t offset : offsets)
        {
            addresses.push_back(bytes + offset);
        }
        EXPECT_TRUE(SendWriteMemory(link, addresses, data));
        ExpectNoReply();
        EXPECT_EQ(expected, host.Read(bytes, 64)) << "Size " << size;
    }
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, WritesElementsOfNoBytesToAnyAddress)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    EXPECT_TRUE(SendWriteMemory(link, {bytes, 0, 0xFFFFFFFF}, {}));
    EXPECT_TRUE(SendWriteMemory(link, {}, {}));
    ExpectNoReply();
    EXPECT_EQ(Pattern(64), host.Read(bytes, 64));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, WritesTheLastElementLast)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    EXPECT_TRUE(SendWriteMemory(link, {bytes, bytes + 1, bytes}, {1, 2, 3, 4, 5, 6}));
    ExpectNoReply();
    std::vector<uint8_t> expected = Pattern(64);
    expected[0] = 5;
    expected[1] = 6;
    expected[2] = 4;
    EXPECT_EQ(expected, host.Read(bytes, 64));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, WritesByTheLowerHalvesOfAddressesAndSize)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    BlobWriter<WriteMemoryBlob> blob;
    memset(&blob.fixed, 0xEE, sizeof(blob.fixed));
    blob.fixed.elementSize = 0xFFFFFFFF00000002;
    blob.fixed.elementCount = 2;
    blob.List(&WriteMemoryBlob::addresses,
              std::vector<AddressSlot>{bytes | upperHalf, (bytes + 8) | upperHalf});
    blob.List(&WriteMemoryBlob::data, std::vector<uint8_t>{1, 2, 3, 4});
    EXPECT_TRUE(link.Send(blob.Finish()));
    ExpectNoReply();
    std::vector<uint8_t> expected = Pattern(64);
    expected[0] = 1;
    expected[1] = 2;
    expected[8] = 3;
    expected[9] = 4;
    EXPECT_EQ(expected, host.Read(bytes, 64));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopiesElementsOfEverySize)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    for (const uint32_t size : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 12u, 13u, 16u})
    {
        std::vector<uint8_t> expected = host.Read(bytes, 64);
        ASSERT_EQ(64u, expected.size());
        memcpy(expected.data() + 45, expected.data() + 1, size);
        memcpy(expected.data() + 20, expected.data() + 45, size);
        EXPECT_TRUE(SendCopyMemory(link, size, {bytes + 1, bytes + 45}, {bytes + 45, bytes + 20}));
        ExpectNoReply();
        EXPECT_EQ(expected, host.Read(bytes, 64)) << "Size " << size;
    }
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopiesElementsOfNoBytesToAnyAddress)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    EXPECT_TRUE(SendCopyMemory(link, 0, {bytes, 0, 0xFFFFFFFF}, {0, bytes, 0}));
    EXPECT_TRUE(SendCopyMemory(link, 4, {}, {}));
    ExpectNoReply();
    EXPECT_EQ(Pattern(64), host.Read(bytes, 64));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopiesElementsOntoThemselves)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    EXPECT_TRUE(SendCopyMemory(link, 60, {bytes, bytes + 4}, {bytes, bytes + 4}));
    ExpectNoReply();
    EXPECT_EQ(Pattern(64), host.Read(bytes, 64));
}

/// Each element is copied from what the one before has left, where targets and sources overlap.
BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopiesOneElementAfterAnother)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    std::vector<uint8_t> expected = Pattern(64);
    std::vector<AddressSlot> sources;
    std::vector<AddressSlot> destinations;
    for (uint32_t i = 0; i + 8 <= 64; i += 3)
    {
        sources.push_back(bytes + i);
        destinations.push_back(bytes + i + 4);
        memcpy(expected.data() + i + 4, std::vector<uint8_t>(expected).data() + i, 4);
    }
    EXPECT_TRUE(SendCopyMemory(link, 4, sources, destinations));
    ExpectNoReply();
    EXPECT_EQ(expected, host.Read(bytes, 64));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopiesByTheLowerHalvesOfAddresses)
{
    const AddressSlot bytes = AwaitNumber("bytes");
    BlobWriter<CopyMemoryBlob> blob;
    memset(&blob.fixed, 0xEE, sizeof(blob.fixed));
    blob.fixed.elementSize = 2;
    blob.fixed.elementCount = 1;
    blob.List(&CopyMemoryBlob::sources, std::vector<AddressSlot>{bytes | upperHalf});
    blob.List(&CopyMemoryBlob::destinations, std::vector<AddressSlot>{(bytes + 8) | upperHalf});
    EXPECT_TRUE(link.Send(blob.Finish()));
    ExpectNoReply();
    std::vector<uint8_t> expected = Pattern(64);
    memcpy(expected.data() + 8, expected.data(), 2);
    EXPECT_EQ(expected, host.Read(bytes, 64));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsWritesAndCopiesMegabytes)
{
    const AddressSlot source = AwaitNumber("source");
    EXPECT_TRUE(Pattern(hugeSize) == Elements(hugeSize, {source}));
    EXPECT_TRUE(SendWriteMemory(link, {AwaitNumber("written")}, Pattern(hugeSize)));
    EXPECT_TRUE(SendCopyMemory(link, hugeSize, {source}, {AwaitNumber("copied")}));
    ExpectNoReply();
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadsCodeThatNobodyCanWrite)
{
    EXPECT_EQ((std::vector<uint8_t>{0xB8, 0x2A, 0x00, 0x00, 0x00, 0xC3}), Elements(6, {AwaitNumber("code")}));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, ReadingABadAddressFaultsOnTheReceiverThread)
{
    Publish("receiver thread", process->receiverThreadId);
    EXPECT_EQ(std::vector<uint8_t>{0x5A}, Elements(1, {AwaitNumber("address")}));
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, WritingToAReadOnlyPageFaultsOnTheReceiverThread)
{
    Publish("receiver thread", process->receiverThreadId);
    EXPECT_TRUE(SendWriteMemory(link, {AwaitNumber("address")}, {0xA5}));
    ExpectNoReply();
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopyingToAReadOnlyPageFaultsOnTheReceiverThread)
{
    Publish("receiver thread", process->receiverThreadId);
    EXPECT_TRUE(SendCopyMemory(link, 1, {AwaitNumber("bytes")}, {AwaitNumber("address")}));
    ExpectNoReply();
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, WritingToANullAddressFaults)
{
    Publish("receiver thread", process->receiverThreadId);
    EXPECT_TRUE(SendWriteMemory(link, {0}, {1, 2, 3, 4}));
    EXPECT_TRUE(Await("faulted"));
    ExitBeforeAgent();
}

BRIDGE_SCENARIO_OF(MemoryBridge, MemoryEdges, CopyingFromANullAddressFaults)
{
    Publish("receiver thread", process->receiverThreadId);
    EXPECT_TRUE(SendCopyMemory(link, 4, {0}, {AwaitNumber("bytes")}));
    EXPECT_TRUE(Await("faulted"));
    ExitBeforeAgent();
}

#endif
