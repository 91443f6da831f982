#pragma once

/// \file
/// Whole files and folders of tests and benchmarks; any thread.

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

#include <windows.h>

namespace Torvane::Testing
{
/// The folder of temporary files, with a separator at the end.
inline std::wstring TemporaryFilesFolder()
{
    wchar_t path[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH + 1, path);
    return path;
}

/// Creates a file, or replaces one. \return whether all bytes were written.
inline bool WriteWholeFile(const std::wstring& path, const void* bytes, size_t size)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    DWORD written = 0;
    const BOOL success = WriteFile(file, bytes, static_cast<DWORD>(size), &written, nullptr);
    CloseHandle(file);
    return success && written == size;
}

/// \return all bytes of a file, which others may still be writing; empty if it can't be opened.
inline std::string ReadWholeFile(const std::wstring& path)
{
    std::string bytes;
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return bytes;
    }
    char buffer[16384];
    DWORD count = 0;
    while (ReadFile(file, buffer, sizeof(buffer), &count, nullptr) && count != 0)
    {
        bytes.append(buffer, count);
    }
    CloseHandle(file);
    return bytes;
}

inline std::vector<uint8_t> ReadFileBytes(const std::wstring& path)
{
    const std::string bytes = ReadWholeFile(path);
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

/// Removes a folder and all that it holds, as far as nobody has it open. \return whether all its files are gone.
inline bool RemoveFolder(const std::wstring& folder)
{
    bool removed = true;
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
                removed = DeleteFileW(child.c_str()) && removed;
            }
            else if (name != L"." && name != L"..")
            {
                removed = RemoveFolder(child) && removed;
            }
        }
        while (FindNextFileW(search, &entry));
        FindClose(search);
    }
    RemoveDirectoryW(folder.c_str());
    return removed;
}

/// \return whether there is a file or a folder of that path.
inline bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

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
} // namespace Torvane::Testing
