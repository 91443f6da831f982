#include "bridge/WatchedFolder.h"

#include <utility>

#include <windows.h>

#include <wchar.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint64_t settlingTime = 100; // milliseconds

/// None if another process has the file open: a linker or a copy isn't ready then.
std::optional<std::vector<uint8_t>> ReadAlone(const std::wstring& path)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return {};
    }
    LARGE_INTEGER size = {};
    GetFileSizeEx(file, &size);
    std::vector<uint8_t> bytes(size.HighPart == 0 ? size.LowPart : 0);
    DWORD count = 0;
    if (!ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr))
    {
        count = 0;
    }
    bytes.resize(count);
    CloseHandle(file);
    return bytes;
}
} // namespace

WatchedFolder::WatchedFolder(std::wstring folderPath)
    : path(std::move(folderPath))
{
    for (const auto& [name, stamp] : List())
    {
        states[name] = {stamp, stamp, 0};
    }
}

std::map<std::wstring, WatchedFolder::Stamp> WatchedFolder::List() const
{
    std::map<std::wstring, Stamp> files;
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW((path + L"\\*.dll").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
    {
        return files;
    }
    do
    {
        const std::wstring name = found.cFileName;
        const wchar_t* extension = wcsrchr(found.cFileName, L'.'); // the pattern also finds longer ones
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && _wcsicmp(extension, L".dll") == 0)
        {
            const ULARGE_INTEGER time = {
                {found.ftLastWriteTime.dwLowDateTime, found.ftLastWriteTime.dwHighDateTime}};
            const ULARGE_INTEGER size = {{found.nFileSizeLow, found.nFileSizeHigh}};
            files[name] = {time.QuadPart, size.QuadPart};
        }
    }
    while (FindNextFileW(search, &found));
    FindClose(search);
    return files;
}

std::vector<std::wstring> WatchedFolder::Names() const
{
    std::vector<std::wstring> names;
    for (const auto& [name, stamp] : List())
    {
        names.push_back(name);
    }
    return names;
}

std::optional<WatchedFolder::Library> WatchedFolder::FindChanged()
{
    const std::map<std::wstring, Stamp> files = List();
    const uint64_t now = GetTickCount64();
    for (const auto& [name, stamp] : files)
    {
        State& state = states[name];
        if (!(stamp == state.seen))
        {
            state.seen = stamp;
            state.since = now;
        }
        if (stamp == state.done || now - state.since < settlingTime)
        {
            continue;
        }
        std::optional<std::vector<uint8_t>> bytes = ReadAlone(path + L"\\" + name);
        if (bytes && bytes->size() == stamp.size)
        {
            return Library{name, std::move(*bytes), static_cast<uint32_t>(now - state.since)};
        }
    }
    for (auto state = states.begin(); state != states.end();) // a file that comes back is a new one
    {
        state = files.count(state->first) != 0 ? std::next(state) : states.erase(state);
    }
    return {};
}

void WatchedFolder::Done(const Library& library)
{
    State& state = states[library.name];
    state.done = state.seen;
}
} // namespace Torvane::Bridge
