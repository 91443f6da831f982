#include "tests/Support/Integration/TestHalf.h"

#include <string.h>

namespace Torvane::Testing
{
void TestHalf::Publish(const std::string& name, uint64_t value)
{
    channel.Publish(name, &value, sizeof(value));
}

void TestHalf::Publish(const std::string& name, const void* address)
{
    Publish(name, uint64_t(reinterpret_cast<uintptr_t>(address)));
}

void TestHalf::PublishText(const std::string& name, const std::wstring& text)
{
    channel.Publish(name, text.data(), text.size() * sizeof(wchar_t));
}

void TestHalf::PublishBytes(const std::string& name, const std::vector<uint8_t>& bytes)
{
    channel.Publish(name, bytes.data(), bytes.size());
}

void TestHalf::Signal(const std::string& name)
{
    channel.Publish(name, nullptr, 0);
}

bool TestHalf::Await(const std::string& name, uint32_t milliseconds)
{
    std::vector<uint8_t> data;
    WaitUntil([&] { return channel.Find(name, data) || HasOtherHalfEnded(); }, milliseconds);
    return channel.Find(name, data);
}

std::vector<uint8_t> TestHalf::AwaitBytes(const std::string& name)
{
    EXPECT_TRUE(Await(name)) << "The other half hasn't published \"" << name << "\".";
    std::vector<uint8_t> data;
    channel.Find(name, data);
    return data;
}

uint64_t TestHalf::AwaitNumber(const std::string& name)
{
    const std::vector<uint8_t> data = AwaitBytes(name);
    uint64_t value = 0;
    if (data.size() == sizeof(value))
    {
        memcpy(&value, data.data(), sizeof(value));
    }
    return value;
}

std::wstring TestHalf::AwaitText(const std::string& name)
{
    const std::vector<uint8_t> data = AwaitBytes(name);
    return std::wstring(reinterpret_cast<const wchar_t*>(data.data()), data.size() / sizeof(wchar_t));
}
} // namespace Torvane::Testing
