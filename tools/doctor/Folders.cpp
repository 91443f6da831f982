#include "tools/doctor/Folders.h"

#include "tools/doctor/Image.h"

#include <windows.h>

namespace Torvane::Doctor
{
namespace
{
std::wstring GetWindowsFolder()
{
    wchar_t folder[MAX_PATH] = {};
    GetSystemWindowsDirectoryW(folder, MAX_PATH);
    return folder;
}

std::vector<std::wstring> GetPathFolders()
{
    std::wstring path(GetEnvironmentVariableW(L"PATH", nullptr, 0), L'\0');
    path.resize(GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    std::vector<std::wstring> folders;
    for (size_t start = 0; start < path.size();)
    {
        const size_t end = path.find(L';', start);
        const size_t length = (end == std::wstring::npos ? path.size() : end) - start;
        if (length != 0)
        {
            folders.push_back(path.substr(start, length));
        }
        start += length + 1;
    }
    return folders;
}
} // namespace

std::wstring Widen(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

bool IsThere(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::wstring FullPath(const std::wstring& path)
{
    std::wstring full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
    full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

std::wstring FolderOf(const std::wstring& path)
{
    return path.substr(0, path.find_last_of(L'\\'));
}

LibrarySearch::LibrarySearch(const std::wstring& programFolder, bool searchesFor64Bit)
    : is64Bit(searchesFor64Bit)
    // To a 32-bit process like this one, System32 is the folder of 32-bit libraries, and Sysnative the other.
    , systemFolder(GetWindowsFolder() + (is64Bit ? L"\\Sysnative" : L"\\System32"))
    , folders{programFolder, systemFolder, GetWindowsFolder()}
{
    const std::vector<std::wstring> pathFolders = GetPathFolders();
    folders.insert(folders.end(), pathFolders.begin(), pathFolders.end());
}

std::wstring LibrarySearch::Find(const std::wstring& name, std::wstring& ofOtherSize) const
{
    for (const std::wstring& folder : folders)
    {
        std::wstring path = folder;
        path.append(L"\\").append(name);
        if (!IsThere(path))
        {
            continue;
        }
        if (folder == systemFolder)
        {
            return path; // on an ARM64 machine its libraries serve x64 processes as well, whatever their headers say
        }
        const Image image = ReadImage(path);
        if (is64Bit ? image.Is64Bit() : image.Is32Bit())
        {
            return path;
        }
        ofOtherSize = path;
    }
    return L"";
}

bool LibrarySearch::IsOfSystem(const std::wstring& path) const
{
    return path.compare(0, systemFolder.size(), systemFolder) == 0;
}
} // namespace Torvane::Doctor
