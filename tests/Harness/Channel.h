#pragma once

/// \file
/// What the two halves of a test tell each other, in shared memory named by the host's process id; any thread of
/// either process.

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// How long a condition may take to come true, in milliseconds. Generous: it only passes when a test fails.
constexpr uint32_t patience = 30000;

/// What the host half publishes first: how many seconds its test may take.
constexpr char timeLimitName[] = "time limit";

/// How far the Bridge half is.
enum class BridgeState : uint32_t
{
    NotStarted = 0,
    Running = 1,
    Staying = 2,  ///< all is checked, but it stays connected until the Agent goes
    Finished = 3, ///< it is about to exit
};

/// Named pieces of data, each published once, and the report of the Bridge half.
class Channel
{
public:
    explicit Channel(uint32_t hostProcessId);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Publishes data under a name that hasn't been used; at most 4096 bytes.
    void Publish(const std::string& name, const void* data, size_t size);

    /// \return whether that name has been published; then `data` is what was.
    bool Find(const std::string& name, std::vector<uint8_t>& data);

    /// The Bridge half's own.
    void EnterBridge(uint32_t processId);
    void SetState(BridgeState state);
    void AddFailure(const std::string& text);

    BridgeState State();
    uint32_t BridgeProcessId();
    std::vector<std::string> Failures();

private:
    struct Memory;

    void Lock();
    void Unlock();

    void* mapping;
    void* mutex;
    Memory* memory;
};

/// How long the loops that look at a condition pause between two looks, in milliseconds.
constexpr uint32_t pauseBetweenLooks = 5;
} // namespace Torvane::Testing
