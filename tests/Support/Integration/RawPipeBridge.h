#pragma once

/// \file
/// Bridge halves that read the agent pipe themselves; for the thread that runs the test.

#include "tests/Support/Integration/BridgeTest.h"
#include "tests/Support/Integration/RawPipe.h"

namespace Torvane::Testing
{
/// Both pipes are connected when the body begins. Nothing has been sent, and the process ends when the body does.
class RawPipeBridge : public BridgeTest
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(agentPipe);
        ASSERT_TRUE(link.ConnectBridgePipe(testTimeout));
    }

    /// Sends the version, and reads the Agent's version and its registration.
    void Register()
    {
        EXPECT_TRUE(Bridge::SendVersion(link));
        for (int i = 0; i < 4; ++i)
        {
            EXPECT_FALSE(agentPipe.ReadBlob().empty());
        }
    }

    RawPipe agentPipe{agentPipePrefix, link.HostProcessId()};
};
} // namespace Torvane::Testing
