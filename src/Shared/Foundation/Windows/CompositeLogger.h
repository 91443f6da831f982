#pragma once

/// \file
/// The Agent's log as a whole: file and debugger. Started and ended on the host's thread; used by any.

#include "Shared/Foundation/Logger.h"

namespace Torvane
{
class FileSink;
class DebugOutputSink;

/// Hands each level to the file and then to the debugger. A panic breaks into an attached debugger after each.
class CompositeLogger final : public Logger
{
public:
    constexpr CompositeLogger(FileSink* fileSink, DebugOutputSink* debugOutputSink)
        : fileSink(fileSink)
        , debugOutputSink(debugOutputSink)
    {
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
    FileSink* fileSink;
    DebugOutputSink* debugOutputSink;
};
} // namespace Torvane
