#pragma once

/// \file
/// Host halves: the images that the build makes for tests, and what the OS says of them; any thread.

#include "tests/Harness/AgentLibrary.h"
#include "tests/Harness/Utf8.h"

#include <string>

#include <windows.h>

namespace Torvane::Testing
{
/// The full path of an image of `tests/Integration/Images`, by its name without extension.
inline std::wstring ImagePath(const std::wstring& name)
{
    return ExecutableFolder() + L"\\images\\" + name + L".dll";
}

inline MEMORY_BASIC_INFORMATION QueryMemory(const void* address)
{
    MEMORY_BASIC_INFORMATION region = {};
    VirtualQuery(address, &region, sizeof(region));
    return region;
}

/// An export, as a function or the address of data.
template<typename Type>
Type FindExport(void* module, const char* name)
{
    return reinterpret_cast<Type>(
        reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name)));
}

/// Whether a module is loaded there.
inline bool IsModule(const void* base)
{
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                  GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<const wchar_t*>(base), &module) &&
           module == base;
}

/// A new folder of this process's own, with whatever is in it gone at the end.
class TemporaryFolder
{
public:
    /// \param name what the folder's name ends in.
    explicit TemporaryFolder(const std::wstring& name)
    {
        wchar_t folder[MAX_PATH] = {};
        GetTempPathW(MAX_PATH, folder);
        path = std::wstring(folder) + std::to_wstring(GetCurrentProcessId()) + L" " + name;
        CreateDirectoryW(path.c_str(), nullptr);
    }

    ~TemporaryFolder()
    {
        WIN32_FIND_DATAW found = {};
        const HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &found);
        if (search != INVALID_HANDLE_VALUE)
        {
            do
            {
                DeleteFileW((path + L"\\" + found.cFileName).c_str());
            }
            while (FindNextFileW(search, &found));
            FindClose(search);
        }
        RemoveDirectoryW(path.c_str());
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The full path of a file in the folder.
    std::wstring File(const std::wstring& name) const
    {
        return path + L"\\" + name;
    }

    /// Writes a file. \return its full path; empty on failure.
    std::wstring Write(const std::wstring& name, const std::string& content) const
    {
        const std::wstring file = File(name);
        const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD count = 0;
        const bool written =
            handle != INVALID_HANDLE_VALUE &&
            WriteFile(handle, content.data(), static_cast<DWORD>(content.size()), &count, nullptr) &&
            count == content.size();
        CloseHandle(handle);
        return written ? file : std::wstring();
    }

    /// Copies a file. \return the copy's full path; empty on failure.
    std::wstring Copy(const std::wstring& source, const std::wstring& name) const
    {
        return CopyFileW(source.c_str(), File(name).c_str(), FALSE) ? File(name) : std::wstring();
    }

private:
    std::wstring path;
};
} // namespace Torvane::Testing
