#pragma once

/// \file
/// Finds the reloads and restarts of one host and their phases; for the command's only thread.

#include "tools/blobs/HostSpans.h"

namespace Torvane::Blobs
{
class ReloadSpans
{
public:
    /// Processes the current Blob, of any type.
    void Take(HostSpans& host);

private:
    void Begin(HostSpans& host);
    void NextPhase(HostSpans& host, const std::string& name, const std::string& endOfLast = "");

    size_t track = none;
    size_t reload = none;
    size_t phase = none;
    uint32_t count = 0;
    bool isLoading = false;
};

class RestartSpans
{
public:
    /// Processes the current Blob, of any type.
    void Take(HostSpans& host);

private:
    void NextPhase(HostSpans& host, const char* name);

    size_t track = none;
    size_t restart = none;
    size_t phase = none;
};
} // namespace Torvane::Blobs
