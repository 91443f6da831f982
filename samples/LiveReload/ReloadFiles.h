#pragma once

/// \file
/// Files in one folder by which the demo script and the Bridge of this sample communicate; for the main thread, `Report`
/// for any thread.
///
/// For reload N, in this order: `N.wanted` (by the script), `N.granted` (by the Bridge: the host has agreed, compile
/// now), `N.dll` and then `N.compiled` (by the script), `N.done` (by the Bridge, containing "ok" or "failed").
/// `bridge.log` contains a line for each action of the Bridge.

#include <stdint.h>
#include <string>

namespace Torvane::Sample
{
class ReloadFiles
{
public:
    /// Uses the folder that the environment variable `TORVANE_LIVE_RELOAD_FOLDER` names.
    ReloadFiles();
    ~ReloadFiles();
    ReloadFiles(const ReloadFiles&) = delete;
    ReloadFiles& operator=(const ReloadFiles&) = delete;

    /// Whether the folder can be written to.
    explicit operator bool() const
    {
        return log != nullptr;
    }

    /// The path of a file of that number: "3.dll" with its folder.
    std::wstring Path(uint32_t number, const std::wstring& extension) const;

    bool Exists(uint32_t number, const std::wstring& extension) const;

    /// Creates the file, complete from the moment when it exists.
    void Write(uint32_t number, const std::wstring& extension, const std::string& content) const;

    /// Adds a line to `bridge.log`.
    void Report(const std::string& line) const;

private:
    std::wstring folder;
    void* log;
};
} // namespace Torvane::Sample
