#pragma once

/// \file
/// The host half of a test about the end of the link; for the thread that runs the test.

#include "tests/Support/Integration/HostTest.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// Base of the host halves of tests in which the link breaks.
class LinkTest : public HostTest
{
protected:
    /// Starts a default agent with a connection callback that counts its calls.
    TvnDefaultAgent& StartWatchedAgent(const TvnProjectPreferences* projectPreferences = nullptr);

    /// Waits for the status of the agent started by `StartWatchedAgent`. It may be called again at any later time:
    /// the status has to be the same then, and to have been reported just once.
    void ExpectStatus(TvnConnectionStatus status);

    /// Waits until the thread "Torvane receiver" or "Torvane sender" has ended, which has to have this result.
    void ExpectReceiverEnd(uint32_t result);
    void ExpectSenderEnd(uint32_t result);

    /// The codes of all failed reads and writes on the pipes so far, in their order.
    std::vector<uint32_t> PipeErrors() const;

    /// The Error lines so far are these, in any order. Each failure of a pipe adds its own line, unless its code is
    /// one of the three of an ordinary end of the link. The receiver never sees another code, so its
    /// lines aren't allowed.
    void ExpectErrorLines(std::vector<std::string> messages) const;

    /// Waits until the Bridge half has ended. The Agent still accepts calls then, and shuts down.
    void ExpectHostWorksAndShutsDown();

    /// Waits until the Agent waits for the second of its pipes to be connected.
    void WaitForFirstPipe();

private:
    struct Reports
    {
        volatile long count = 0;
        volatile long status = -1;
    };
    static void TVN_CALL CountReport(void* context, TvnConnectionStatus status);
    void ExpectThreadEnd(const std::string& thread, uint32_t result);

    Reports reports;
    TvnDefaultAgent* agent = nullptr;
};
} // namespace Torvane::Testing
