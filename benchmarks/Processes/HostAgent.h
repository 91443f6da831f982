#pragma once

/// \file
/// The Agent's library in the host's process, at most once at a time; the main thread. A failure ends the process.

#include "Torvane/Agent.h"

#include <string>

#include <windows.h>

namespace Torvane::Benchmarks
{
class HostAgent
{
public:
    HostAgent();
    ~HostAgent();
    HostAgent(const HostAgent&) = delete;
    HostAgent& operator=(const HostAgent&) = delete;

    /// Where the Agent's library and the Bridge are, with a backslash at the end.
    static std::wstring Folder();

    void Load();
    void Start();
    void StartSynchronized();
    void WaitForConnection();
    void Shutdown();
    void Unload();

    HMODULE library;
    TvnDefaultAgent calls;                  ///< from `Start` on
    TvnSynchronizedAgent synchronizedCalls; ///< from `StartSynchronized` on

private:
    HANDLE connected;
};
} // namespace Torvane::Benchmarks
