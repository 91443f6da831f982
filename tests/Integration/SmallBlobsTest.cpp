#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// DecrementLatch of what is no latch, Synchronize, EchoRequest.

#if TORVANE_HOST_HALF

namespace
{
/// The calls of the function that the Blob is named after, by the receiver thread.
struct FlushCalls
{
    static inline volatile LONG count;
    static inline volatile LONG ofWholeProcess;

    static BOOL WINAPI Note(HANDLE process, const void* base, SIZE_T size)
    {
        if (process == GetCurrentProcess() && base == nullptr && size == 0)
        {
            InterlockedIncrement(&ofWholeProcess);
        }
        InterlockedIncrement(&count);
        return FlushInstructionCache(process, base, size);
    }
};
} // namespace

HOST_TEST(SmallBlobs, FlushTheInstructionCacheOfTheWholeProcess)
{
    ReplaceImport("FlushInstructionCache", &FlushCalls::Note);
    ConnectDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(2, FlushCalls::count);
    EXPECT_EQ(2, FlushCalls::ofWholeProcess);
}

HOST_TEST(SmallBlobs, IgnoresLatchesThatNobodyWaitsFor)
{
    static uint32_t memory[16] = {7, 7, 7, 7};
    Publish("memory", memory);
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(6u, CountInLog("Processing Blob::DecrementLatch"));
    for (uint32_t i = 0; i < 16; ++i)
    {
        EXPECT_EQ(i < 4 ? 7u : 0u, *const_cast<volatile uint32_t*>(&memory[i]));
    }
    ExpectNoErrorsInLog();
}

HOST_TEST(SmallBlobs, SynchronizeIsAnsweredByNothingButALogLine)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    EXPECT_EQ(2u, CountInLog("Processing Blob::Synchronize"));
    ExpectNoErrorsInLog();
}

HOST_TEST(SmallBlobs, EchoesEachTokenInOrder)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    for (const LogRecord& record : ReadLog())
    {
        EXPECT_EQ(std::string::npos, record.message.find("Echo")) << record.message;
    }
}

HOST_TEST(SmallBlobs, LogsEachBlobInTheOrderSent)
{
    StartDefaultAgent();
    EXPECT_TRUE(Await("checked"));
    ExpectLogOrder({"Processing Blob::Synchronize", "Processing Blob::FlushInstructionCache",
                    "Processing Blob::DecrementLatch", "Processing Blob::ReadMemory",
                    "Processing Blob::WriteMemory", "Processing Blob::CopyMemory",
                    "Processing Blob::SetPageProtectionWindows", "Processing Blob::CallHooks",
                    "Processing Blob::LogNarrow", "Processing Blob::LogWide", "Processing Blob::UnloadPatch",
                    "Processing Blob::Synchronize"});
    size_t count = 0;
    for (const LogRecord& record : ReadLog())
    {
        if (record.message.rfind("Processing Blob::", 0) == 0)
        {
            EXPECT_EQ("DBG", record.tag) << record.message;
            ++count;
        }
    }
    EXPECT_EQ(12u, count);
}

#else

BRIDGE_SCENARIO(SmallBlobs, FlushTheInstructionCacheOfTheWholeProcess)
{
    ASSERT_TRUE(SendFlushInstructionCache(link));
    ASSERT_TRUE(SendFlushInstructionCache(link));
    ExpectNoReply();
}

BRIDGE_SCENARIO(SmallBlobs, IgnoresLatchesThatNobodyWaitsFor)
{
    const AddressSlot memory = AwaitNumber("memory");
    for (const AddressSlot latch :
         {memory, memory + 4, memory + 1, AddressSlot(0), AddressSlot(0xFFFFFFFF), ~AddressSlot(0)})
    {
        ASSERT_TRUE(SendDecrementLatch(link, latch));
    }
    ExpectNoReply();
}

BRIDGE_SCENARIO(SmallBlobs, SynchronizeIsAnsweredByNothingButALogLine)
{
    const std::vector<uint8_t> payload(100, 0xFF);
    ASSERT_TRUE(SendSynchronize(link));
    ASSERT_TRUE(link.Send(MakeBlob(BlobType::Synchronize, payload.data(), payload.size())));
    ExpectNoReply();
}

BRIDGE_SCENARIO(SmallBlobs, EchoesEachTokenInOrder)
{
    std::vector<uint64_t> tokens = {0, 1, 0xFFFFFFFFFFFFFFFF, 0x8000000000000000, 0x00000000FFFFFFFF};
    for (uint64_t i = 0; i < 200; ++i)
    {
        tokens.push_back(i * 0x0123456789ABCDEF);
    }
    for (const uint64_t token : tokens)
    {
        // What precedes the token isn't read.
        ASSERT_TRUE(link.Send(ByteImage(16).U64(0, ~token).U64(8, token).Blob(74)));
    }
    for (const uint64_t token : tokens)
    {
        ASSERT_EQ(ByteImage(8).U64(0, token).Blob(75), Receive().Bytes());
    }
    EXPECT_FALSE(link.Receive(0));
}

BRIDGE_SCENARIO(SmallBlobs, LogsEachBlobInTheOrderSent)
{
    ASSERT_TRUE(SendSynchronize(link));
    ASSERT_TRUE(SendFlushInstructionCache(link));
    ASSERT_TRUE(SendDecrementLatch(link, 0));
    ASSERT_TRUE(SendReadMemory(link, 0, {}, 0));
    ASSERT_TRUE(SendWriteMemory(link, {}, {}));
    ASSERT_TRUE(SendCopyMemory(link, 0, {}, {}));
    ASSERT_TRUE(SendSetPageProtection(link, {}));
    ASSERT_TRUE(SendCallHooks(link, 12, 0, 0));
    ASSERT_TRUE(SendLogNarrow(link, ""));
    ASSERT_TRUE(SendLogWide(link, L""));
    ASSERT_TRUE(SendUnloadPatch(link, 0));
    ASSERT_TRUE(SendSynchronize(link));
    ASSERT_TRUE(Fence());
}

#endif
