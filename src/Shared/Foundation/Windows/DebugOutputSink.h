#pragma once

/// \file
/// Writes log records of chosen levels to the debugger. Any thread.

#include "Shared/Foundation/Logger.h"

namespace Torvane
{
/// Which levels reach the debugger: success 1, information 2, warnings 4, errors 8, panics 16. Debug never does.
class DebugOutputSink final : public MessageLogger<DebugOutputSink>
{
public:
    constexpr explicit DebugOutputSink(uint32_t levelMask)
        : levelMask(levelMask)
    {
    }

    void SetLevelMask(uint32_t newMask)
    {
        levelMask = newMask;
    }

    void Write(const LogMessage& message) const;

private:
    uint32_t levelMask;
};
} // namespace Torvane
