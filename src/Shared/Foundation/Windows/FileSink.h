#pragma once

/// \file
/// Writes log records of every level to a file, each whole record with one write. Any thread.

#include "Shared/Foundation/Logger.h"

#include <windows.h>

namespace Torvane
{
/// A record is a line break, the seconds since startup, a three-letter tag, the source position and the message. With
/// `separateText` 1 the message follows by itself, unformatted. With an invalid handle nothing happens. A failed write
/// costs that record, and is reported as "Cannot write to file." through the same log; further failures are silent until
/// a write succeeds again.
class FileSink final : public MessageLogger<FileSink>
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

    void Write(const LogMessage& message) const;

private:
    void WriteBytes(const char* bytes, uint32_t count) const;

    HANDLE file;
    mutable volatile LONG failing = 0; ///< 1: the latest write has failed
};
} // namespace Torvane
