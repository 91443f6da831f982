#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Blobs that the Agent doesn't accept: it executes no command after one of them. A test for each number.

namespace
{
constexpr uint32_t acceptedNumbers[] = {10, 11, 17, 23, 24, 25, 27, 28, 29, 31,
                                        34, 40, 41, 50, 55, 60, 67, 73, 74, 76};
constexpr uint32_t numberCount = 77;
constexpr char testNamePrefix[] = "Number";

bool IsAccepted(uint32_t number)
{
    for (const uint32_t accepted : acceptedNumbers)
    {
        if (accepted == number)
        {
            return true;
        }
    }
    return false;
}

/// Registers a test of a class for each number that isn't accepted. \return how many there are.
template<typename Base, typename Test>
int RegisterForEachNumber(int line)
{
    int count = 0;
    for (uint32_t number = 0; number < numberCount; ++number)
    {
        if (!IsAccepted(number))
        {
            const std::string name = testNamePrefix + std::to_string(number);
            testing::RegisterTest("RefusedBlobs", name.c_str(), nullptr, nullptr, __FILE__, line,
                                  []() -> Base* { return new Test; });
            ++count;
        }
    }
    return count;
}

uint32_t NumberOfThisTest()
{
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    return static_cast<uint32_t>(std::stoul(name.substr(sizeof(testNamePrefix) - 1)));
}
} // namespace

#if TORVANE_HOST_HALF

namespace
{
class RefusedBlobHost : public HostTest
{
    void HostHalf() override
    {
        ConnectDefaultAgent();
        const std::string refusal = "Unknown blob type " + std::to_string(NumberOfThisTest());
        EXPECT_TRUE(WaitForLog(refusal));
        EXPECT_TRUE(WaitForLog("Thread 'Torvane receiver' exited with result 0"));
        ExpectLogOrder({"Processing Blob::Synchronize", refusal, "Exiting receiver thread",
                        "Thread 'Torvane receiver' exited with result 0"});
        EXPECT_EQ(1u, CountInLog("Processing Blob::Synchronize")) << "What follows isn't executed.";
        EXPECT_EQ(1u, CountErrors());

        Library().TvnLogMessageANSI("The other direction still works.");
        EXPECT_TRUE(Await("still sending"));
    }

    size_t CountErrors() const
    {
        size_t count = 0;
        for (const LogRecord& record : WithoutHeapSearch(ReadLog()))
        {
            count += record.tag == "ERR";
        }
        return count;
    }
};

[[maybe_unused]] const int registered = RegisterForEachNumber<HostTest, RefusedBlobHost>(__LINE__);
} // namespace

#else

namespace
{
class RefusedBlobBridge : public ConnectedBridgeTest
{
    void TestBody() override
    {
        const uint8_t payload[40] = {};
        ASSERT_TRUE(SendSynchronize(link));
        ASSERT_TRUE(link.Send(MakeBlob(static_cast<BlobType>(NumberOfThisTest()), payload, sizeof(payload))));
        // Nobody reads these any more.
        link.Send(MakeBlob(BlobType::Synchronize, nullptr, 0));
        SendEchoRequest(link, 1);
        const auto message = link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow);
        ASSERT_TRUE(message);
        EXPECT_EQ("The other direction still works.", message.AnsiString(message->text));
        EXPECT_FALSE(link.Receive(0)) << "The echo isn't answered.";
        Signal("still sending");
    }
};

[[maybe_unused]] const int registered = RegisterForEachNumber<BridgeTest, RefusedBlobBridge>(__LINE__);
} // namespace

#endif
