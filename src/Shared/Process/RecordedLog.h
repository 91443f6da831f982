#pragma once

/// \file
/// A log that keeps its lines, for tests. It may be written to from any thread that the test waits for.

#include "Shared/Foundation/Logger.h"

#include <algorithm>
#include <stdint.h>
#include <string>
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
        lines.push_back(tag + std::string(text, length));
    }

    Logger* before;
    std::vector<std::string> lines;
};
} // namespace Torvane
