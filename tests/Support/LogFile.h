#pragma once

/// \file
/// A file that a test's log is written to; one thread.

#include "tests/Support/TemporaryFile.h"

namespace Torvane::Testing
{
/// A temporary file that is open for writing.
class LogFile
{
public:
    LogFile()
        : handle(CreateFileW(file.GetPath(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr))
    {
        EXPECT_NE(handle, INVALID_HANDLE_VALUE);
    }

    ~LogFile()
    {
        if (handle != INVALID_HANDLE_VALUE)
        {
            CloseHandle(handle);
        }
    }

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    HANDLE Get() const
    {
        return handle;
    }

    /// \return the open handle, which the caller closes.
    HANDLE Release()
    {
        const HANDLE released = handle;
        handle = INVALID_HANDLE_VALUE;
        return released;
    }

    const wchar_t* GetPath() const
    {
        return file.GetPath();
    }

    /// \return all bytes of the file, which may still be open.
    std::string Read() const
    {
        return ReadWholeFile(file.GetPath());
    }

private:
    TemporaryFile file;
    HANDLE handle;
};
} // namespace Torvane::Testing
