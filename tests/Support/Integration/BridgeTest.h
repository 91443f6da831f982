#pragma once

/// \file
/// The Bridge half of an integration test; for the thread that runs it.

#include "bridge/Bridge.h"
#include "tests/Support/Integration/TestHalf.h"

namespace Torvane::Testing
{
/// A link whose two pipes can be connected one at a time.
class TestLink : public Bridge::Link
{
public:
    using Link::Link;

    using Link::ConnectAgentPipe;
    using Link::ConnectBridgePipe;
};

/// Base of all Bridge halves. What fails here fails the test. Waits have the limit `testTimeout`. A half that is derived
/// from this class alone isn't connected when its body begins, and its process ends when the body does.
class BridgeTest : public TestHalf
{
protected:
    BridgeTest();

    /// Both pipes, not connected yet.
    TestLink link{Bridge::HostProcessIdFromCommandLine()};

    /// The process whose Agent has spawned us.
    Bridge::HostProcess host{link.HostProcessId()};

    /// What the Agent has registered; filled by `Connect`.
    Bridge::Received<ProjectPreferencesRecord> projectPreferences;
    Bridge::Received<RegisterAgentBlob> agent;
    Bridge::Received<RegisterProcessBlob> process;

    /// Connects both pipes, exchanges versions and takes the Agent's registration out of the inbox.
    bool Connect();

    /// All is checked: stays connected until the Agent closes its pipes. The host half may end meanwhile.
    void StayUntilAgentGoes();

    /// The same for another link than `link`.
    void StayUntilAgentGoes(Bridge::Link& other);

    /// The next Blob from the Agent; empty if there is none in time.
    Bridge::Message Receive();

    /// The next Blob from the Agent, which has to be of this type; empty if it isn't, or if there is none in time.
    template<typename Record>
    Bridge::Received<Record> WaitFor()
    {
        return link.WaitFor<Record>(testTimeout);
    }

    /// Waits until the Agent has executed everything sent so far. \return whether it has in time.
    bool Fence();

    /// Waits as `Fence`, and fails the test if the Agent has sent a Blob that wasn't received.
    void ExpectNoReply();

    /// The Bridge's process is ended at once, as by a crash: no handle is closed by anybody but the OS.
    [[noreturn]] void Die();

    /// The page ranges of [base, base + size) of the host as they are now.
    std::vector<WirePageRange> QueryPageRanges(AddressSlot base, uint32_t size);

private:
    bool HasOtherHalfEnded() override;
};

/// Base of the Bridge halves that are connected when their body begins. When it has ended without a fatal failure, the
/// half publishes "checked" and stays connected until the Agent closes its pipes.
class ConnectedBridgeTest : public BridgeTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// The process ends when the body does; for an Agent that doesn't close its pipes, and for links that are closed.
    void ExitBeforeAgent();

private:
    bool stays = true;
};
} // namespace Torvane::Testing
