#include "tests/Support/Integration/BridgeTest.h"

#include "tests/Support/Wait.h"

#include <stdlib.h>
#include <string.h>

namespace Torvane::Testing
{
bool BridgeTest::Connect()
{
    if (!link.Connect(testTimeout) || !link.ExchangeVersion(testTimeout))
    {
        return false;
    }
    projectPreferences = link.Expect<ProjectPreferencesRecord>(testTimeout);
    agent = link.Expect<RegisterAgentBlob>(testTimeout);
    process = link.Expect<RegisterProcessBlob>(testTimeout);
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

void BridgeTest::Die()
{
    TerminateProcess(GetCurrentProcess(), 0);
    abort();
}

void BridgeTest::Publish(const std::string& name, uint64_t value)
{
    channel.Publish(name, &value, sizeof(value));
}

void BridgeTest::Signal(const std::string& name)
{
    channel.Publish(name, nullptr, 0);
}

bool BridgeTest::Await(const std::string& name, uint32_t milliseconds)
{
    std::vector<uint8_t> data;
    WaitUntil([&] { return channel.Find(name, data) || host.WaitForEnd(0); }, milliseconds);
    return channel.Find(name, data);
}

uint64_t BridgeTest::AwaitNumber(const std::string& name)
{
    EXPECT_TRUE(Await(name)) << "The host half hasn't published \"" << name << "\".";
    std::vector<uint8_t> data;
    uint64_t value = 0;
    if (channel.Find(name, data) && data.size() == sizeof(value))
    {
        memcpy(&value, data.data(), sizeof(value));
    }
    return value;
}

std::vector<uint8_t> BridgeTest::AwaitBytes(const std::string& name)
{
    EXPECT_TRUE(Await(name)) << "The host half hasn't published \"" << name << "\".";
    std::vector<uint8_t> data;
    channel.Find(name, data);
    return data;
}

std::wstring BridgeTest::AwaitText(const std::string& name)
{
    const std::vector<uint8_t> data = AwaitBytes(name);
    return std::wstring(reinterpret_cast<const wchar_t*>(data.data()), data.size() / sizeof(wchar_t));
}
} // namespace Torvane::Testing
