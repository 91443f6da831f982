#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Shutdown at different moments of the Agent's life.

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/StartupGate.h"
#include "tests/Support/TestThread.h"

namespace
{
constexpr uint32_t longerLook = 200; // milliseconds

/// \return whether there was anything to close.
bool Close(HANDLE handle)
{
    return handle != nullptr && CloseHandle(handle);
}

class ShutdownTest : public LinkTest
{
protected:
    /// Shutdown comes when the Bridge isn't even spawned. It waits for the receiver to be through with its
    /// initialization.
    void ShutDownDuringInitialization()
    {
        StartupGate gate;
        StartWatchedAgent();
        const TestThread shutdown([this] { Library().TvnShutdown(); });
        LeaveAgentRunning(); // the thread shuts it down
        EXPECT_TRUE(WaitForLog("Shutting down agent-bridge communication"));
        EXPECT_FALSE(shutdown.WaitForEnd(longerLook));
        EXPECT_EQ("Shutting down agent-bridge communication", LastMessageOfShutdown());
        gate.Open();
        EXPECT_TRUE(shutdown.WaitForEnd(testTimeout));
        EXPECT_EQ("Shutting down default allocators for memory system", ReadLog().back().message);
    }

private:
    std::string LastMessageOfShutdown() const
    {
        std::string last;
        for (const LogRecord& record : ReadLog())
        {
            if (record.message.compare(0, 13, "Shutting down") == 0)
            {
                last = record.message;
            }
        }
        return last;
    }
};
} // namespace

#define SHUTDOWN(Name) HOST_TEST_OF(ShutdownTest, Shutdown, Name)

SHUTDOWN(WaitsForAnInitializationThatSucceeds)
{
    UseDefaultBridge();
    ExpectNoBridge(); // it can find its pipes closed already
    ShutDownDuringInitialization();
    EXPECT_EQ(1u, CountInLog("Initialization done"));
}

SHUTDOWN(WaitsForAnInitializationThatFails)
{
    RemoveBridge();
    ShutDownDuringInitialization();
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(10);
    ExpectSenderEnd(3);
    ExpectErrorLines({"Failed to spawn bridge process", "Failed to send Version blob"});
}

SHUTDOWN(WaitsForTheTimeoutOfPipesThatNobodyConnects)
{
    UseOwnAgentFolder();
    StartWatchedAgent();
    EXPECT_TRUE(WaitForLog("Spawned bridge process"));
    Shutdown();
    Signal("shut down");
    ExpectStatus(ConnectionFailed);
    ExpectReceiverEnd(11);
    ExpectSenderEnd(3);
    ExpectErrorLines({"Failed to wait for sender pipe", "Failed to wait for receiver pipe",
                      "Failed to send Version blob"});
}

SHUTDOWN(DoesNotEndTheBridge)
{
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    Shutdown();
    Signal("shut down");
    EXPECT_TRUE(Await("still alive")) << "It is neither waited for nor ended.";
}

SHUTDOWN(GivesEveryThreadOfTheAgentBack)
{
    UseDefaultBridge();
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    Shutdown();
    size_t started = 0;
    size_t exited = 0;
    for (const LogRecord& record : ReadLog())
    {
        const bool isOfAThread = record.message.compare(0, 8, "Thread '") == 0;
        started += isOfAThread && record.message.find("' started") != std::string::npos;
        exited += isOfAThread && record.message.find("' exited with result ") != std::string::npos;
    }
    EXPECT_EQ(6u, started) << "four that stay, and two that watched the pipes being connected";
    EXPECT_EQ(6u, exited);
}

SHUTDOWN(GivesTheNamesOfItsObjectsBack)
{
    UseDefaultBridge();
    StartWatchedAgent();
    ExpectStatus(ConnectionSucceeded);
    const std::wstring identifier = std::to_wstring(GetCurrentProcessId());
    const std::wstring mutexes[] = {agentBridgeMutexPrefix + identifier, heartbeatMutexPrefix + identifier};
    const std::wstring sections[] = {agentBridgeSectionPrefix + identifier,
                                     heartbeatSectionPrefix + identifier};
    for (const std::wstring& name : mutexes)
    {
        EXPECT_TRUE(WaitUntil([&] { return Close(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str())); }));
    }
    for (const std::wstring& name : sections)
    {
        EXPECT_TRUE(WaitUntil([&] { return Close(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str())); }));
    }
    Shutdown();
    EXPECT_TRUE(WaitForBridge()); // which could hold on to them
    for (const std::wstring& name : mutexes)
    {
        EXPECT_FALSE(Close(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str())));
    }
    for (const std::wstring& name : sections)
    {
        EXPECT_FALSE(Close(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str())));
    }
    for (const wchar_t* pipe : {agentPipePrefix, bridgePipePrefix})
    {
        EXPECT_FALSE(WaitNamedPipeW((pipe + identifier).c_str(), 1));
        EXPECT_EQ(DWORD(ERROR_FILE_NOT_FOUND), GetLastError());
    }
}

#else

BRIDGE_SCENARIO_OF(BridgeTest, Shutdown, WaitsForTheTimeoutOfPipesThatNobodyConnects)
{
    EXPECT_TRUE(Await("shut down"));
}

BRIDGE_SCENARIO_OF(BridgeTest, Shutdown, DoesNotEndTheBridge)
{
    EXPECT_TRUE(Connect());
    EXPECT_TRUE(link.WaitUntilClosed(testTimeout));
    EXPECT_TRUE(Await("shut down"));
    Signal("still alive");
}

#endif
