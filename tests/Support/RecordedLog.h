#pragma once

/// \file
/// A log that keeps its lines, for tests. Any thread may write to it; its lines are read when the test has waited for
/// those that do.

#include "Shared/Foundation/Logger.h"

#include <algorithm>
#include <atomic>
#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

namespace Torvane
{
/// Takes the place of the current logger as long as it lives.
class RecordedLog final : private Logger
{
public:
    RecordedLog()
        : before(GetCurrentLogger())
    {
        SetCurrentLogger(this);
    }

    ~RecordedLog()
    {
        SetCurrentLogger(before);
    }

    RecordedLog(const RecordedLog&) = delete;
    RecordedLog& operator=(const RecordedLog&) = delete;

    /// \return all lines so far: the level's tag in the log file, a blank, the text.
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
        lines.clear();
    }

private:
    void Debug(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("DBG ", text, length);
    }
    void Success(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("SCS ", text, length);
    }
    void Info(const char*, int32_t, const char* text, uint32_t length, const char*, int32_t,
              uint32_t) override
    {
        Keep("INF ", text, length);
    }
    void Warning(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("WRN ", text, length);
    }
    void Error(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("ERR ", text, length);
    }
    void Panic(const char*, const char* text, uint32_t length, const char*, int32_t, uint32_t) override
    {
        Keep("PNC ", text, length);
    }
    void Reserved() override
    {
    }

    void Keep(const char* tag, const char* text, uint32_t length)
    {
        std::string line = tag + std::string(text, length);
        while (busy.test_and_set(std::memory_order_acquire))
        {
        }
        lines.push_back(std::move(line));
        busy.clear(std::memory_order_release);
    }

    Logger* before;
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    std::vector<std::string> lines;
};
} // namespace Torvane
