#pragma once

/// \file
/// What both halves of an integration test can do: exchange data by name; for the thread that runs the test.

#include "tests/Support/Integration/Channel.h"
#include "tests/Support/Wait.h"

#include <stdint.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Torvane::Testing
{
/// Base of `HostTest` and `BridgeTest`.
class TestHalf : public testing::Test
{
protected:
    explicit TestHalf(uint32_t hostProcessId)
        : channel(hostProcessId)
    {
    }

    /// Publishes something for the other half under a name that hasn't been used: a number, the address of something, or
    /// a string.
    void Publish(const std::string& name, uint64_t value);
    void Publish(const std::string& name, const void* address);
    void PublishText(const std::string& name, const std::wstring& text);
    void PublishBytes(const std::string& name, const std::vector<uint8_t>& bytes);

    /// Publishes a name without a value.
    void Signal(const std::string& name);

    /// Whether the other half has published the name within the limit. The wait ends early when it can't any more.
    bool Await(const std::string& name, uint32_t milliseconds = testTimeout);

    /// What the other half publishes; 0 or empty, with a failure of the test, if it doesn't.
    uint64_t AwaitNumber(const std::string& name);
    std::wstring AwaitText(const std::string& name);
    std::vector<uint8_t> AwaitBytes(const std::string& name);

    /// Whether the other half publishes nothing more.
    virtual bool HasOtherHalfEnded() = 0;

    Channel channel;
};
} // namespace Torvane::Testing
