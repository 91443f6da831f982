#include "tests/Support/Integration/BridgeTest.h"

#include <stdlib.h>

namespace Torvane::Testing
{
BridgeTest::BridgeTest()
    : TestHalf(Bridge::HostProcessIdFromCommandLine())
{
}

bool BridgeTest::Connect()
{
    if (!link.Connect(testTimeout) || !link.ExchangeVersion(testTimeout))
    {
        return false;
    }
    projectPreferences = link.WaitFor<ProjectPreferencesRecord>(testTimeout);
    agent = link.WaitFor<RegisterAgentBlob>(testTimeout);
    process = link.WaitFor<RegisterProcessBlob>(testTimeout);
    return projectPreferences && agent && process;
}

void BridgeTest::StayUntilAgentGoes()
{
    StayUntilAgentGoes(link);
}

void BridgeTest::StayUntilAgentGoes(Bridge::Link& other)
{
    channel.SetState(BridgeState::Staying);
    EXPECT_TRUE(other.WaitUntilClosed(testTimeout)) << "The Agent hasn't closed its pipes.";
}

Bridge::Message BridgeTest::Receive()
{
    return link.Receive(testTimeout);
}

bool BridgeTest::Fence()
{
    return static_cast<bool>(Bridge::Fence(link, testTimeout));
}

void BridgeTest::ExpectNoReply()
{
    EXPECT_TRUE(Fence());
    const Bridge::Message message = link.Receive(0);
    EXPECT_FALSE(message) << Bridge::BlobName(message.Type());
}

void BridgeTest::Die()
{
    TerminateProcess(GetCurrentProcess(), 0);
    abort();
}

bool BridgeTest::HasOtherHalfEnded()
{
    return host.WaitForEnd(0);
}

void ConnectedBridgeTest::SetUp()
{
    ASSERT_TRUE(Connect());
}

void ConnectedBridgeTest::TearDown()
{
    if (stays && !HasFatalFailure())
    {
        Signal("checked");
        StayUntilAgentGoes();
    }
}

void ConnectedBridgeTest::ExitBeforeAgent()
{
    stays = false;
}

std::vector<WirePageRange> BridgeTest::QueryPageRanges(AddressSlot base, uint32_t size)
{
    std::vector<WirePageRange> ranges;
    for (AddressSlot next = base; next < base + size; next = ranges.back().base + ranges.back().size)
    {
        ranges.push_back(host.QueryPages(next));
    }
    return ranges;
}
} // namespace Torvane::Testing
