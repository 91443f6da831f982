#pragma once

/// \file
/// The Bridge half of an integration test; for the thread that runs it.

#include "bridge/Bridge.h"
#include "tests/Support/Integration/Channel.h"

#include "gtest/gtest.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// Base of all Bridge halves. What fails here fails the test. Waits have the limit `testTimeout`.
class BridgeTest : public testing::Test
{
protected:
    /// Both pipes, not connected yet.
    Bridge::Link link{Bridge::HostProcessIdFromCommandLine()};

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

    /// The Bridge's process is ended at once, as by a crash: no handle is closed by anybody but the OS.
    [[noreturn]] void Die();

    // Talking with the host half; as in `HostTest`.

    void Publish(const std::string& name, uint64_t value);
    void Signal(const std::string& name);
    bool Await(const std::string& name, uint32_t milliseconds = testTimeout);
    uint64_t AwaitNumber(const std::string& name);
    std::wstring AwaitText(const std::string& name);
    std::vector<uint8_t> AwaitBytes(const std::string& name);

private:
    Channel channel{link.HostProcessId()};
};
} // namespace Torvane::Testing

using namespace Torvane;
using namespace Torvane::Bridge;
using namespace Torvane::Testing;
