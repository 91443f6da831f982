#pragma once

/// \file
/// Writes log records of every level to a file, each whole record with one write. Any thread.

#include "Shared/Foundation/Logger.h"

#include <windows.h>

namespace Torvane
{
/// A record is a line break, the seconds since startup, a three-letter tag, the source position and the message. With
/// `separateText` 1 the message follows by itself, unformatted. With an invalid handle nothing happens. A failed write
/// costs that record, and is told as "Cannot write to file." through the same log.
class FileSink final : public Logger
{
public:
    /// \param file stays the caller's, who closes it when the sink isn't used any more.
    constexpr explicit FileSink(HANDLE file)
        : file(file)
    {
    }

    void SetFile(HANDLE newFile)
    {
        file = newFile;
    }

    HANDLE GetFile() const
    {
        return file;
    }

    void Debug(const char* channel, const char* text, uint32_t length, const char* source, int32_t line,
               uint32_t separateText) override;
    void Success(const char* channel, const char* text, uint32_t length, const char* source, int32_t line,
                 uint32_t separateText) override;
    void Info(const char* channel, int32_t number, const char* text, uint32_t length, const char* source,
              int32_t line, uint32_t separateText) override;
    void Warning(const char* channel, const char* text, uint32_t length, const char* source, int32_t line,
                 uint32_t separateText) override;
    void Error(const char* channel, const char* text, uint32_t length, const char* source, int32_t line,
               uint32_t separateText) override;
    void Panic(const char* channel, const char* text, uint32_t length, const char* source, int32_t line,
               uint32_t separateText) override;
    void Reserved() override;

private:
    void WriteRecord(const char* tag, const char* text, uint32_t length, const char* source, int32_t line,
                     uint32_t separateText) const;
    void WriteBytes(const char* bytes, uint32_t count) const;

    HANDLE file;
};
} // namespace Torvane
