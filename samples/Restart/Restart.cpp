/// \file
/// The Bridge of the restart sample: it accepts the restart that the host requests, and starts the new process.

#include "bridge/Bridge.h"

#include <stdio.h>

#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 20000;        // milliseconds
constexpr uint32_t noLimit = 0xFFFFFFFF; // a host may request a restart after hours

/// Adds a line to the file that the environment variable `TORVANE_DEMO_OUTPUT` names. The host writes to it too.
void Report(const std::string& text)
{
    const HANDLE file = CreateFileW(_wgetenv(L"TORVANE_DEMO_OUTPUT"), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0, nullptr);
    const std::string line = text + "\n";
    DWORD count = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &count, nullptr);
    CloseHandle(file);
}

void ReportBlob(const Message& message)
{
    char line[100];
    snprintf(line, sizeof(line), "%s %9.1f ms  %s", message.From() == Direction::FromAgent ? "<-" : "->",
             message.Time() * 1000, BlobName(message.Type()).c_str());
    Report(line);
}

bool Restart(Link& link, uint32_t hostProcessId)
{
    SendRequestRestart(link);
    const auto restart = link.WaitFor<RestartBlob>(limit);
    if (!restart)
    {
        Report("!! the host hasn't agreed to a restart");
        return false;
    }
    const LaunchInfo image = ReadLaunchInfo(restart);
    Report(".. executable    " + Utf8(image.executablePath));
    Report(".. command line  " + Utf8(image.commandLine));
    Report(".. folder        " + Utf8(image.currentDirectory));
    Report(".. environment   " + std::to_string(image.environment.size()) + " bytes");
    SendExitProcessForHotRestart(link, restart->event);
    if (!WaitForProcessEnd(hostProcessId, limit))
    {
        Report("!! the host doesn't end");
        return false;
    }
    const uint32_t processId = Launch(image);
    Report(processId == 0 ? "!! the new process can't be started, error " + std::to_string(GetLastError())
                          : ".. started process " + std::to_string(processId));
    return processId != 0;
}

int RunRestart(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    link.Observe(&ReportBlob);
    if (!link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    while (const Message message = link.Receive(noLimit))
    {
        if (message.Type() == BlobType::ScheduleRestart)
        {
            return Restart(link, hostProcessId) ? 0 : 1;
        }
    }
    return 0;
}

const RegisteredScenario restart("Restart", &RunRestart);
} // namespace
} // namespace Torvane::Sample
