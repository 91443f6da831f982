#pragma once

/// \file
/// A logger that keeps every argument of every call. Tests only; one thread at a time.

#include "Shared/Foundation/Logger.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane
{
/// One call of a level operation.
struct LogCall
{
    std::string level;
    const char* channel;
    int32_t number; ///< of `Info`; 0 otherwise
    const char* text;
    std::string bytes; ///< the text, by its length
    uint32_t length;
    std::string file;
    int32_t line;
    uint32_t separateText;
};

/// Takes the place of the current logger as long as it lives.
class LogCalls final : public Logger
{
public:
    LogCalls()
        : before(GetCurrentLogger())
    {
        SetCurrentLogger(this);
    }

    ~LogCalls()
    {
        SetCurrentLogger(before);
    }

    LogCalls(const LogCalls&) = delete;
    LogCalls& operator=(const LogCalls&) = delete;

    const std::vector<LogCall>& Get() const
    {
        return calls;
    }

    /// \return level and text of each call, with a blank between.
    std::vector<std::string> GetLines() const
    {
        std::vector<std::string> lines;
        for (const LogCall& call : calls)
        {
            lines.push_back(call.level + " " + call.bytes);
        }
        return lines;
    }

    void Debug(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override
    {
        Keep("Debug", channel, 0, text, length, file, line, separateText);
    }
    void Success(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) override
    {
        Keep("Success", channel, 0, text, length, file, line, separateText);
    }
    void Info(const char* channel, int32_t number, const char* text, uint32_t length, const char* file,
              int32_t line, uint32_t separateText) override
    {
        Keep("Info", channel, number, text, length, file, line, separateText);
    }
    void Warning(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) override
    {
        Keep("Warning", channel, 0, text, length, file, line, separateText);
    }
    void Error(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override
    {
        Keep("Error", channel, 0, text, length, file, line, separateText);
    }
    void Panic(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override
    {
        Keep("Panic", channel, 0, text, length, file, line, separateText);
    }
    void Reserved() override
    {
        calls.push_back({"Reserved", nullptr, 0, nullptr, "", 0, "", 0, 0});
    }

private:
    void Keep(const char* level, const char* channel, int32_t number, const char* text, uint32_t length,
              const char* file, int32_t line, uint32_t separateText)
    {
        calls.push_back(
            {level, channel, number, text, std::string(text, length), length, file, line, separateText});
    }

    Logger* before;
    std::vector<LogCall> calls;
};
} // namespace Torvane
