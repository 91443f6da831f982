#pragma once

/// \file
/// Writes log records of chosen levels to the debugger. Any thread.

#include "Shared/Foundation/Logger.h"

namespace Torvane
{
/// Which levels reach the debugger: success 1, information 2, warnings 4, errors 8, panics 16. Debug never does.
class DebugOutputSink final : public Logger
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

    void Debug(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override;
    void Success(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) override;
    void Info(const char* channel, int32_t number, const char* text, uint32_t length, const char* file,
              int32_t line, uint32_t separateText) override;
    void Warning(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) override;
    void Error(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override;
    void Panic(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override;
    void Reserved() override;

private:
    void WriteRecord(uint32_t level, const char* tag, const char* text, uint32_t length) const;

    uint32_t levelMask;
};
} // namespace Torvane
