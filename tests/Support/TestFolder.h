#pragma once

/// \file
/// A folder for a test's files; one thread.

#include "tests/Support/TestThread.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>
#include <windows.h>

namespace Torvane
{
/// A new folder below the folder for temporary files, which goes with all that it holds.
class TestFolder
{
public:
    TestFolder()
    {
        wchar_t temporary[MAX_PATH + 1] = {};
        GetTempPathW(MAX_PATH + 1, temporary);
        static unsigned made = 0;
        const std::wstring name = L"TorvaneTest-" + std::to_wstring(GetCurrentProcessId()) + L"-";
        path = temporary + name + std::to_wstring(++made);
        EXPECT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    }

    ~TestFolder()
    {
        Remove(path);
    }

    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::wstring& GetPath() const
    {
        return path;
    }

    std::wstring operator/(const std::wstring& name) const
    {
        return path + L"\\" + name;
    }

    std::wstring MakeFolder(const std::wstring& name) const
    {
        EXPECT_TRUE(CreateDirectoryW((*this / name).c_str(), nullptr));
        return *this / name;
    }

    std::wstring MakeFile(const std::wstring& name, const std::string& bytes = "") const
    {
        const std::wstring file = *this / name;
        const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
        EXPECT_NE(handle, INVALID_HANDLE_VALUE);
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
        EXPECT_EQ(written, bytes.size());
        CloseHandle(handle);
        return file;
    }

private:
    static void Remove(const std::wstring& folder)
    {
        WIN32_FIND_DATAW entry = {};
        const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
        if (search != INVALID_HANDLE_VALUE)
        {
            do
            {
                const std::wstring name = entry.cFileName;
                const std::wstring child = folder + L"\\" + name;
                if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
                {
                    SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);
                    EXPECT_TRUE(DeleteFileW(child.c_str())) << "a file of the test is still in use";
                }
                else if (name != L"." && name != L"..")
                {
                    Remove(child);
                }
            }
            while (FindNextFileW(search, &entry));
            FindClose(search);
        }
        // A process that ran in it can hold it for a moment beyond its end.
        EXPECT_TRUE(WaitUntil([&] { return RemoveDirectoryW(folder.c_str()); }));
    }

    std::wstring path;
};

/// \return whether nobody has the file open. Whoever maps a file holds it open.
inline bool IsUnused(const std::wstring& path)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    CloseHandle(file);
    return true;
}

inline bool IsOpenHandle(HANDLE handle)
{
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != 0;
}
} // namespace Torvane
