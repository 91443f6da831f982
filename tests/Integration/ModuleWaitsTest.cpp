#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// How long calls that enable modules wait: without a connection yet, without one any more, and many of them at once.

namespace
{
constexpr uint32_t threadCount = 8;
constexpr uint32_t rounds = 10;
} // namespace

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/StartupGate.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/TestThread.h"

#include <memory>

namespace
{
class WaitingHost : public HostTest
{
protected:
    WaitingHost()
    {
        EXPECT_TRUE(libraries.Write("TvnA.dll"));
        EXPECT_NE(nullptr, libraries.Load("TvnA.dll"));
    }

    void Enable()
    {
        Library().TvnEnableModule(L"TvnA.dll", ExactlyTheseModules, nullptr, nullptr);
    }

    std::string EnablingLine() const
    {
        const std::wstring path = libraries.PathOf("TvnA.dll");
        return "Enabling module " + std::string(path.begin(), path.end());
    }

    TestLibraries libraries;
};
} // namespace

#define WAITING_HOST(Name) HOST_TEST_OF(WaitingHost, ModuleWaits, Name)

WAITING_HOST(LastUntilTheBridgeHasConnectedAndAnswered)
{
    StartDefaultAgent();
    const TestThread caller([this] { Enable(); });
    EXPECT_TRUE(WaitForLog(EnablingLine()));
    EXPECT_FALSE(caller.WaitForEnd(quietPeriod));
    Signal("called");
    EXPECT_TRUE(Await("received"));
    EXPECT_FALSE(caller.WaitForEnd(quietPeriod));
    Signal("waits");
    EXPECT_TRUE(caller.WaitForEnd(testTimeout));
    EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
}

WAITING_HOST(EndIfThereIsNoBridge)
{
    RemoveBridge();
    StartupGate gate;
    StartDefaultAgent();
    {
        const TestThread caller([this] { Enable(); });
        EXPECT_TRUE(WaitForLog(EnablingLine()));
        EXPECT_FALSE(caller.WaitForEnd(quietPeriod)) << "There can be one yet.";
        gate.Open();
        EXPECT_TRUE(caller.WaitForEnd(testTimeout));
    }
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
    const TestThread late([this] { Enable(); });
    EXPECT_TRUE(late.WaitForEnd(testTimeout));
    EXPECT_EQ(2u, CountInLog(EnablingLine()));
}

WAITING_HOST(EndWithTheLink)
{
    ConnectDefaultAgent();
    {
        const TestThread first([this] { Enable(); });
        const TestThread second([this] { Enable(); });
        EXPECT_TRUE(Await("received"));
        EXPECT_FALSE(first.WaitForEnd(quietPeriod));
        EXPECT_FALSE(second.WaitForEnd(quietPeriod));
        Signal("waits");
        EXPECT_TRUE(first.WaitForEnd(testTimeout));
        EXPECT_TRUE(second.WaitForEnd(testTimeout));
    }
    // And from now on there is nothing to wait for.
    const TestThread late([this] { Enable(); });
    EXPECT_TRUE(late.WaitForEnd(testTimeout));
    EXPECT_EQ(3u, CountInLog(EnablingLine()));
}

WAITING_HOST(AreNotMovedByStaleAcknowledgements)
{
    ConnectDefaultAgent();
    const TestThread caller([this] {
        Enable();
        EXPECT_TRUE(Await("stale"));
        Enable(); // its latch has the address of the first one
    });
    EXPECT_TRUE(Await("received"));
    EXPECT_FALSE(caller.WaitForEnd(quietPeriod));
    Signal("waits");
    EXPECT_TRUE(caller.WaitForEnd(testTimeout));
    ExpectNoErrorsInLog();
}

WAITING_HOST(OfManyThreadsEndOneByOne)
{
    std::vector<std::string> names;
    for (uint32_t i = 0; i < threadCount; ++i)
    {
        names.push_back("TvnOf" + std::to_string(i) + ".dll");
        ASSERT_TRUE(libraries.Write(names.back(), {}, 0x3000 + i * 0x1000));
        ASSERT_NE(nullptr, libraries.Load(names.back()));
    }
    TvnDefaultAgent& agent = ConnectDefaultAgent();
    std::vector<std::unique_ptr<TestThread>> threads;
    for (uint32_t i = 0; i < threadCount; ++i)
    {
        threads.push_back(std::make_unique<TestThread>([&agent, &names, i] {
            for (uint32_t round = 0; round < rounds; ++round)
            {
                agent.TvnEnableModuleANSI(names[i].c_str(), IncludeImports, nullptr, nullptr);
            }
        }));
    }
    for (const auto& thread : threads)
    {
        EXPECT_TRUE(thread->WaitForEnd(testTimeout));
    }
    EXPECT_EQ(threadCount * rounds, CountInLog("API TvnEnableModuleANSI"));
    ExpectNoErrorsInLog();
}

#else

#include <algorithm>
#include <set>

#define WAITING_BRIDGE(Name) BRIDGE_SCENARIO(ModuleWaits, Name)

BRIDGE_SCENARIO_OF(BridgeTest, ModuleWaits, LastUntilTheBridgeHasConnectedAndAnswered)
{
    ASSERT_TRUE(Await("called"));
    ASSERT_TRUE(Connect());
    const auto blob = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(blob);
    Signal("received");
    ASSERT_TRUE(Await("waits"));
    SendDecrementLatch(link, blob->latch);
    StayUntilAgentGoes();
}

WAITING_BRIDGE(EndWithTheLink)
{
    EXPECT_TRUE(WaitFor<EnableModulesBlob>());
    EXPECT_TRUE(WaitFor<EnableModulesBlob>());
    Signal("received");
    ASSERT_TRUE(Await("waits"));
    Die();
}

WAITING_BRIDGE(AreNotMovedByStaleAcknowledgements)
{
    const auto first = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(first);
    SendDecrementLatch(link, first->latch, 10);
    SendDecrementLatch(link, 0, 10);
    SendDecrementLatch(link, host.ExecutableBase());
    ASSERT_TRUE(Fence());
    Signal("stale");
    const auto second = WaitFor<EnableModulesBlob>();
    ASSERT_TRUE(second);
    EXPECT_EQ(first->latch, second->latch);
    SendDecrementLatch(link, host.ExecutableBase());
    ASSERT_TRUE(Fence());
    Signal("received");
    ASSERT_TRUE(Await("waits"));
    SendDecrementLatch(link, second->latch);
}

WAITING_BRIDGE(OfManyThreadsEndOneByOne)
{
    for (uint32_t round = 0; round < rounds; ++round)
    {
        // Every thread waits for its own latch, so that one Blob of each comes and no more.
        std::vector<AddressSlot> latches;
        std::set<uint32_t> sizes;
        for (uint32_t i = 0; i < threadCount; ++i)
        {
            const auto blob = WaitFor<EnableModulesBlob>();
            ASSERT_EQ(1u, ModulesOf(blob).size());
            latches.push_back(blob->latch);
            sizes.insert(ModulesOf(blob).front().imageSize);
        }
        EXPECT_EQ(threadCount, std::set<AddressSlot>(latches.begin(), latches.end()).size());
        EXPECT_EQ(threadCount, sizes.size());
        std::reverse(latches.begin(), latches.end());
        for (const AddressSlot latch : latches)
        {
            SendDecrementLatch(link, latch);
        }
    }
}

#endif
