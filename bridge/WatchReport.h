#pragma once

/// \file
/// The lines of a Bridge that watches a folder; for one thread.

#include <stdint.h>
#include <string>

namespace Torvane::Bridge
{
/// Writes lines to the file bridge.log in a folder, and to the console of the host if it has one.
class WatchReport
{
public:
    /// Adds to a file that exists. This process leaves its console for that of the host.
    WatchReport(const std::wstring& folder, uint32_t hostProcessId);
    ~WatchReport();
    WatchReport(const WatchReport&) = delete;
    WatchReport& operator=(const WatchReport&) = delete;

    /// \param line UTF-8, without a line break.
    void Line(const std::string& line) const;

private:
    void* log;
    void* console;
};
} // namespace Torvane::Bridge
