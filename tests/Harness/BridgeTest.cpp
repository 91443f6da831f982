#include "tests/Harness/BridgeTest.h"

#include <stdlib.h>
#include <string.h>

#include <windows.h>

namespace Torvane::Testing
{
bool BridgeTest::Connect()
{
    if (!link.Connect(patience) || !link.ExchangeVersion(patience))
    {
        return false;
    }
    projectPreferences = link.Expect<ProjectPreferencesRecord>(patience);
    agent = link.Expect<RegisterAgentBlob>(patience);
    process = link.Expect<RegisterProcessBlob>(patience);
    return projectPreferences && agent && process;
}

void BridgeTest::StayUntilAgentGoes()
{
    StayUntilAgentGoes(link);
}

void BridgeTest::StayUntilAgentGoes(Bridge::Link& other)
{
    channel.SetState(BridgeState::Staying);
    EXPECT_TRUE(other.WaitUntilClosed(patience)) << "The Agent hasn't closed its pipes.";
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
    const ULONGLONG end = GetTickCount64() + milliseconds;
    std::vector<uint8_t> data;
    while (!channel.Find(name, data))
    {
        if (GetTickCount64() >= end || host.WaitForEnd(pauseBetweenLooks))
        {
            return false;
        }
    }
    return true;
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
