#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// A pipe that can't be created, since another object has its name: the one failure that is shown to the user.

#if TORVANE_HOST_HALF

#include "tests/Support/MessageBoxWatcher.h"
#include "tests/Support/TestThread.h"

namespace
{
class PipeCreationTest : public LinkTest
{
protected:
    /// Makes the pipe of this name, of which there can be just one instance.
    void TakeName(const wchar_t* prefix)
    {
        const std::wstring name = prefix + std::to_wstring(GetCurrentProcessId());
        EXPECT_NE(INVALID_HANDLE_VALUE,
                  CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE, 1, 0, 0, 0, nullptr));
    }

    /// Starts an agent that can't create a pipe.
    TvnDefaultAgent& StartWithoutLink()
    {
        ExpectNoBridge();
        Library();
        MessageBoxWatcher watcher("Torvane Agent");
        TvnDefaultAgent& agent = StartDefaultAgent();
        EXPECT_TRUE(watcher.HasClosedBox());
        EXPECT_EQ("Failed to initialize communication between Agent and Bridge, forcing the Agent to exit. "
                  "Please check the log for details.",
                  watcher.text);
        EXPECT_EQ(1, watcher.buttonCount);
        EXPECT_FALSE(watcher.hasOwner);
        EXPECT_FALSE(watcher.hasIcon);
        return agent;
    }

    void ExpectFailureInLog(const std::string& pipe)
    {
        ExpectErrorLines({"Failed to create " + pipe + " pipe"});
        ExpectLogOrder({"Creating communication pipes", "CreateNamedPipeW failed.",
                        "Failed to create " + pipe + " pipe"});
        EXPECT_EQ("Failed to create " + pipe + " pipe", ReadLog().back().message);
        EXPECT_EQ(1u, CountInLog("CreateNamedPipeW failed."));
    }

    /// Without one pipe: shuts down, and closes the other.
    void ExpectShutdown(const wchar_t* takenPrefix)
    {
        TakeName(takenPrefix);
        StartWithoutLink();
        Shutdown();
        ExpectLogOrder({"API TvnShutdown", "Shutting down agent-bridge communication",
                        "Shutting down hot-restart system",
                        "Shutting down default allocators for memory system"});
        const std::wstring otherPrefix =
            takenPrefix == std::wstring(agentPipePrefix) ? bridgePipePrefix : agentPipePrefix;
        const std::wstring other = otherPrefix + std::to_wstring(GetCurrentProcessId());
        EXPECT_FALSE(WaitNamedPipeW(other.c_str(), 1));
        EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError()) << "Its own pipe is closed.";
    }
};
} // namespace

#define PIPE_CREATION(Name) HOST_TEST_OF(PipeCreationTest, PipeCreation, Name)

PIPE_CREATION(ShowsAMessageBoxWhenTheAgentPipesNameIsTaken)
{
    TakeName(agentPipePrefix);
    StartWithoutLink();
    ExpectFailureInLog("agent");
}

PIPE_CREATION(ShowsAMessageBoxWhenTheBridgePipesNameIsTaken)
{
    TakeName(bridgePipePrefix);
    StartWithoutLink();
    ExpectFailureInLog("bridge");
}

PIPE_CREATION(LeavesTheFailureForWhoeverAsks)
{
    TakeName(agentPipePrefix);
    StartWithoutLink();
    EXPECT_EQ(ConnectionFailed, WaitForConnection());
}

PIPE_CREATION(LeavesAnAgentThatTakesCalls)
{
    TakeName(agentPipePrefix);
    TvnDefaultAgent& agent = StartWithoutLink();
    agent.TvnLogMessageANSI("nobody reads this");
    agent.TvnLogMessage(L"nor this");
    agent.TvnSetBoolPreferences(1, true);
    agent.TvnScheduleReload();
    EXPECT_EQ("API TvnScheduleReload", ReadLog().back().message);
    for (const LogRecord& record : ReadLog())
    {
        EXPECT_EQ(std::string::npos, record.message.find("Thread '")) << record.message;
    }
}

PIPE_CREATION(LeavesAnAgentWhoseCallsDoNotWait)
{
    TakeName(agentPipePrefix);
    StartWithoutLink();
    const TestThread caller([this] {
        Library().TvnEnableModule(L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr);
        Library().TvnDisableModule(L"kernel32.dll", ExactlyTheseModules, nullptr, nullptr);
    });
    EXPECT_TRUE(caller.WaitForEnd(testTimeout));
}

PIPE_CREATION(LeavesAnAgentThatShutsDownWithoutItsFirstPipe)
{
    ExpectShutdown(agentPipePrefix);
}

PIPE_CREATION(LeavesAnAgentThatShutsDownWithoutItsSecondPipe)
{
    ExpectShutdown(bridgePipePrefix);
}

#endif
