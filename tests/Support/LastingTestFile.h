#pragma once

/// \file
/// Files that the tested code keeps open until the process ends. Tests only; one thread.

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

namespace Torvane
{
/// Makes a file that isn't removed when the test ends, in a folder for such files. What earlier runs have left there
/// is removed, as far as nobody has it open.
inline std::wstring MakeLastingFile(const std::string& bytes)
{
    wchar_t temporary[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH + 1, temporary);
    const std::wstring folder = std::wstring(temporary) + L"TorvaneTest-lasting";
    CreateDirectoryW(folder.c_str(), nullptr);
    WIN32_FIND_DATAW entry = {};
    const HANDLE search = FindFirstFileW((folder + L"\\*.tmp").c_str(), &entry);
    if (search != INVALID_HANDLE_VALUE)
    {
        do
        {
            DeleteFileW((folder + L"\\" + entry.cFileName).c_str());
        }
        while (FindNextFileW(search, &entry));
        FindClose(search);
    }

    wchar_t path[MAX_PATH] = {};
    EXPECT_NE(GetTempFileNameW(folder.c_str(), L"TVN", 0, path), 0u);
    const HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    CloseHandle(file);
    return path;
}
} // namespace Torvane
