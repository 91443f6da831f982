#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Clients of the two pipes that were there before the Agent has begun to wait for them.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/StartupGate.h"

namespace
{
class EarlyClientTest : public LinkTest
{
protected:
    /// Starts an Agent that is blocked before it spawns its Bridge, and connects both pipes.
    void StartAndConnect()
    {
        UseOwnAgentFolder();
        UseScenario("EarlyClient.DoesNotConnect");
        StartWatchedAgent();
        agentPipe = Open(agentPipePrefix);
        bridgePipe = Open(bridgePipePrefix);
        EXPECT_EQ(0u, CountInLog("Spawned bridge process"));
    }

    static HANDLE Open(const std::wstring& prefix)
    {
        const HANDLE pipe = CreateFileW((prefix + std::to_wstring(GetCurrentProcessId())).c_str(),
                                        GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(INVALID_HANDLE_VALUE, pipe);
        return pipe;
    }

    StartupGate gate;
    HANDLE agentPipe = INVALID_HANDLE_VALUE;
    HANDLE bridgePipe = INVALID_HANDLE_VALUE;
};

constexpr uint8_t version[] = {10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, '2', '.', '4', '.', '0', 0};
} // namespace

#define EARLY_CLIENT(Name) HOST_TEST_OF(EarlyClientTest, EarlyClient, Name)

EARLY_CLIENT(IsConnectedWithoutAWait)
{
    StartAndConnect();
    gate.Open();
    EXPECT_TRUE(WaitForLog("Pipes connected"));
    EXPECT_EQ(0u, CountInLog("ConnectNamedPipe failed."));
    DWORD count = 0;
    EXPECT_TRUE(WriteFile(bridgePipe, version, sizeof(version), &count, nullptr));
    ExpectStatus(ConnectionSucceeded);
    std::vector<uint8_t> bytes(sizeof(version));
    EXPECT_TRUE(ReadFile(agentPipe, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr));
    EXPECT_EQ(std::vector<uint8_t>(version, version + sizeof(version)), bytes);
    ExpectErrorLines({});
    Signal("connected by another");
    CloseHandle(agentPipe);
    CloseHandle(bridgePipe);
    ExpectReceiverEnd(8);
}

EARLY_CLIENT(CanHaveSentItsVersionAlready)
{
    StartAndConnect();
    DWORD count = 0;
    EXPECT_TRUE(WriteFile(bridgePipe, version, sizeof(version), &count, nullptr));
    gate.Open();
    ExpectStatus(ConnectionSucceeded);
    ExpectErrorLines({});
    Signal("connected by another");
    CloseHandle(agentPipe);
    CloseHandle(bridgePipe);
}

EARLY_CLIENT(ThatHasClosedItsPipesIsAFailure)
{
    StartAndConnect();
    CloseHandle(agentPipe);
    CloseHandle(bridgePipe);
    gate.Open();
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(11);
    ExpectLogOrder({"Waiting for bridge to connect to pipes, timeout 2000ms", "ConnectNamedPipe failed.",
                    "Failed to wait for sender pipe", "ConnectNamedPipe failed.",
                    "Failed to wait for receiver pipe", "Thread 'Torvane receiver' exited with result 11"});
    ExpectErrorLines({"Failed to wait for sender pipe", "Failed to wait for receiver pipe"});
    Signal("connected by another");
    ExpectHostWorksAndShutsDown();
    ExpectSenderEnd(3);
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, EarlyClient, DoesNotConnect)
{
    EXPECT_TRUE(Await("connected by another"));
}

#endif
