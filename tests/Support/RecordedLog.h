#pragma once

/// \file
/// A logger that records what is logged. Any thread may log to it; its records are read when the test has waited for
/// those threads.

#include "Shared/Foundation/Logger.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane::Testing
{
/// One call of a logger's operation.
struct LogCall
{
    std::string level; ///< the level's tag in the log file, as in "DBG"
    const char* channel;
    int32_t number; ///< of `Info`; 0 otherwise
    const char* text;
    std::string bytes; ///< the text, by its length
    uint32_t length;
    std::string file;
    int32_t line;
    uint32_t separateText;
};

/// Is the current logger as long as it lives.
class RecordedLog final : public Logger
{
public:
    /// \param afterEachCall is called at the end of each call of the logger.
    explicit RecordedLog(std::function<void()> afterEachCall = [] {})
        : before(GetCurrentLogger())
        , afterCall(std::move(afterEachCall))
    {
        SetCurrentLogger(this);
    }

    ~RecordedLog()
    {
        SetCurrentLogger(before);
    }

    RecordedLog(const RecordedLog&) = delete;
    RecordedLog& operator=(const RecordedLog&) = delete;

    /// \return every call so far, with all its arguments.
    const std::vector<LogCall>& GetCalls() const
    {
        return calls;
    }

    /// \return the level's tag and the text of each call so far, with a blank between them.
    const std::vector<std::string>& GetLines() const
    {
        return lines;
    }

    /// \return how many lines are exactly this one.
    size_t Count(const std::string& line) const
    {
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
    }

    void Clear()
    {
        calls.clear();
        lines.clear();
    }

    void Debug(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override
    {
        Record("DBG", channel, 0, text, length, file, line, separateText);
    }
    void Success(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) override
    {
        Record("SCS", channel, 0, text, length, file, line, separateText);
    }
    void Info(const char* channel, int32_t number, const char* text, uint32_t length, const char* file,
              int32_t line, uint32_t separateText) override
    {
        Record("INF", channel, number, text, length, file, line, separateText);
    }
    void Warning(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
                 uint32_t separateText) override
    {
        Record("WRN", channel, 0, text, length, file, line, separateText);
    }
    void Error(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override
    {
        Record("ERR", channel, 0, text, length, file, line, separateText);
    }
    void Panic(const char* channel, const char* text, uint32_t length, const char* file, int32_t line,
               uint32_t separateText) override
    {
        Record("PNC", channel, 0, text, length, file, line, separateText);
    }
    void Reserved() override
    {
        Record("Reserved", nullptr, 0, "", 0, "", 0, 0);
    }

private:
    void Record(const char* level, const char* channel, int32_t number, const char* text, uint32_t length,
                const char* file, int32_t line, uint32_t separateText)
    {
        const std::string bytes(text, length);
        while (busy.test_and_set(std::memory_order_acquire))
        {
        }
        calls.push_back({level, channel, number, text, bytes, length, file, line, separateText});
        lines.push_back(std::string(level) + " " + bytes);
        busy.clear(std::memory_order_release);
        afterCall();
    }

    Logger* before;
    std::function<void()> afterCall;
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    std::vector<LogCall> calls;
    std::vector<std::string> lines;
};
} // namespace Torvane::Testing
