#pragma once

/// \file
/// A file that a test's log goes to. Tests only.

#include <string>

#include <gtest/gtest.h>
#include <windows.h>

namespace Torvane
{
/// A new file in the folder of temporary files, gone when its life ends.
class LogFile
{
public:
    LogFile()
    {
        wchar_t folder[MAX_PATH];
        GetTempPathW(MAX_PATH, folder);
        GetTempFileNameW(folder, L"tvn", 0, path);
        handle = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_NE(handle, INVALID_HANDLE_VALUE);
    }

    ~LogFile()
    {
        if (handle != INVALID_HANDLE_VALUE)
        {
            CloseHandle(handle);
        }
        DeleteFileW(path);
    }

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    HANDLE Get() const
    {
        return handle;
    }

    /// Leaves the open handle to another, who closes it.
    HANDLE Give()
    {
        const HANDLE given = handle;
        handle = INVALID_HANDLE_VALUE;
        return given;
    }

    const wchar_t* GetPath() const
    {
        return path;
    }

    /// \return all bytes of the file, which may still be open.
    std::string Read() const
    {
        const HANDLE reader = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_NE(reader, INVALID_HANDLE_VALUE);
        std::string bytes(GetFileSize(reader, nullptr), '\0');
        DWORD count = 0;
        EXPECT_TRUE(ReadFile(reader, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr));
        EXPECT_EQ(count, bytes.size());
        CloseHandle(reader);
        return bytes;
    }

private:
    wchar_t path[MAX_PATH] = {};
    HANDLE handle;
};
} // namespace Torvane
