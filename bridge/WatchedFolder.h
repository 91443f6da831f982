#pragma once

/// \file
/// Finds the libraries that appear or change in a folder; for one thread.

#include <map>
#include <optional>
#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// The files *.dll in a folder, but not below it.
class WatchedFolder
{
public:
    /// What is there now is old: it is found once it changes. The folder may appear later.
    explicit WatchedFolder(std::wstring folderPath);

    const std::wstring& Path() const
    {
        return path;
    }

    /// The names of the libraries that are there now.
    std::vector<std::wstring> Names() const;

    struct Library
    {
        std::wstring name; ///< with its extension
        std::vector<uint8_t> bytes;
        uint32_t quietTime; ///< milliseconds since it was last seen to change
    };

    /// A library that has changed, once its time and size have stayed the same for a moment and no other process has the
    /// file open. It is found again and again until it is `Done`.
    std::optional<Library> FindChanged();

    /// Until it changes again.
    void Done(const Library& library);

private:
    struct Stamp
    {
        uint64_t time = 0;
        uint64_t size = 0;

        bool operator==(const Stamp& other) const
        {
            return time == other.time && size == other.size;
        }
    };

    struct State
    {
        Stamp seen;
        Stamp done;
        uint64_t since = 0; ///< milliseconds, when `seen` was seen first
    };

    std::map<std::wstring, Stamp> List() const;

    std::wstring path;
    std::map<std::wstring, State> states;
};
} // namespace Torvane::Bridge
