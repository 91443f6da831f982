/// \file
/// A program that requests a reload, crashes, and requests its restart. It knows by an environment variable that it is the
/// restarted one, which just ends.

#include "Torvane/Load.h"

#include "samples/Complete/Log.h"
#include "samples/Complete/Value.h"

#include <stdint.h>

#include <windows.h>

namespace
{
constexpr DWORD limit = 30000; // milliseconds
constexpr DWORD pollInterval = 10;
constexpr wchar_t restartedVariable[] = L"TORVANE_SAMPLE_RESTARTED";

template<typename Condition>
bool WaitUntil(const Condition& condition)
{
    for (DWORD waited = 0; waited < limit; waited += pollInterval)
    {
        if (condition())
        {
            return true;
        }
        Sleep(pollInterval);
    }
    return false;
}

/// Waits for the Bridge, or until the connection has failed.
void EnableExecutable(TvnHost* agent)
{
    wchar_t path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    TvnHostEnableModule(agent, path, ExactlyTheseModules, nullptr, nullptr);
}

/// Ends the program if the Bridge doesn't decide otherwise.
void Crash()
{
    auto* volatile nowhere = reinterpret_cast<volatile int*>(uintptr_t{16});
    *nowhere = 1;
}

/// \return 0 if the Bridge has done everything.
int Run(TvnHost* agent)
{
    Log("host    is connected and has value %d", Value());
    TvnHostScheduleReload(agent);
    if (!WaitUntil([] { return Value() != 1; }))
    {
        Log("!! not reloaded");
        return 1;
    }
    Log("host    has value %d", Value());

    Crash();
    Log("host    continues after a crash");

    SetEnvironmentVariableW(restartedVariable, L"1"); // its successor inherits it
    TvnHostScheduleRestart(agent, ThisProcessOnly);
    Sleep(limit); // the Agent ends this process
    Log("!! not restarted");
    return 1;
}
} // namespace

int main()
{
    const bool isRestarted = GetEnvironmentVariableW(restartedVariable, nullptr, 0) != 0;
    static TvnHost agent;
    if (!TvnHostLoad(&agent, nullptr) || !TvnHostStartDefaultAgent(&agent, nullptr, nullptr, nullptr))
    {
        Log("!! %ls", agent.reason);
        return 1;
    }
    EnableExecutable(&agent);
    int result = 0;
    if (isRestarted)
    {
        Log("host    was restarted, with value %d", Value());
    }
    else
    {
        result = Run(&agent);
    }
    TvnHostShutdown(&agent);
    return result;
}
