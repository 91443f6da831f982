#pragma once

/// \file
/// Paths, and where the OS looks for libraries. Any thread.

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Doctor
{
std::wstring Widen(const std::string& ascii);

bool IsThere(const std::wstring& path); ///< a file or a folder

std::wstring FullPath(const std::wstring& path);

/// The folder of a file's full path, without a backslash at its end.
std::wstring FolderOf(const std::wstring& path);

/// Where the loader looks for the libraries of a process of one word size.
class LibrarySearch
{
public:
    /// \param programFolder of the process's executable.
    LibrarySearch(const std::wstring& programFolder, bool is64Bit);

    /// \return the first library of this name and of the word size; empty if there is none. `ofOtherSize` then has one
    /// that the loader can't use, if there is one.
    std::wstring Find(const std::wstring& name, std::wstring& ofOtherSize) const;

    /// Whether a path is one of the OS's own libraries.
    bool IsOfSystem(const std::wstring& path) const;

private:
    bool is64Bit;
    std::wstring systemFolder;
    std::vector<std::wstring> folders;
};
} // namespace Torvane::Doctor
