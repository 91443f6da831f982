#pragma once

/// \file
/// What the two halves of a test exchange, in shared memory named after the host's process id; any thread of either
/// process.

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
/// The name that the host half publishes first: how many seconds its test may take.
constexpr char timeLimitName[] = "time limit";

/// Progress of the Bridge half.
enum class BridgeState : uint32_t
{
    NotStarted = 0,
    Running = 1,
    Staying = 2,  ///< all is checked, but it stays connected until the Agent closes its pipes
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
} // namespace Torvane::Testing
