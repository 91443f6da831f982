/// \file
/// The Bridge of the restart sample: it accepts the restart that the host requests, and starts the new process.

#include "bridge/Bridge.h"

#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

using namespace Torvane;
using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 20000; // milliseconds

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

/// Says what the size of the environment counts: more than the variables.
void ReportEnvironment(const std::vector<uint8_t>& environment)
{
    std::wstring block(environment.size() / sizeof(wchar_t), L'\0');
    memcpy(block.data(), environment.data(), block.size() * sizeof(wchar_t));
    size_t variables = 0;
    size_t end = 0;
    while (end < block.size() && block[end] != L'\0')
    {
        end += wcslen(block.c_str() + end) + 1;
        ++variables;
    }
    Report(".. environment   " + std::to_string(variables) + " variables in " +
           std::to_string((end + 1) * sizeof(wchar_t)) + " bytes; " + std::to_string(environment.size()) +
           " bytes were sent: the Agent reads to the end of their memory region");
}

Result<uint32_t> Restart(Session& session)
{
    const auto restart = RequestRestart(session, limit);
    if (!restart)
    {
        return restart.Why();
    }
    const LaunchInfo info = ReadLaunchInfo(*restart);
    Report(".. executable    " + Utf8(info.executablePath));
    Report(".. command line  " + Utf8(info.commandLine));
    Report(".. folder        " + Utf8(info.currentDirectory));
    ReportEnvironment(info.environment);
    return CompleteRestart(session, *restart, limit);
}

int RunRestart(uint32_t hostProcessId)
{
    Link link(hostProcessId);
    link.Observe(&ReportBlob);
    Session session(link);
    Result<> connected = session.Connect(limit);
    if (!connected)
    {
        Report("!! " + connected.Reason());
        return 1;
    }
    link.ServeInRun(BlobType::ScheduleRestart, [&](const Message&) {
        const Result<uint32_t> processId = Restart(session);
        Report(processId ? ".. started process " + std::to_string(*processId) : "!! " + processId.Reason());
    });
    link.Run();
    return 0;
}

const RegisteredScenario restart("Restart", &RunRestart);
} // namespace
} // namespace Torvane::Sample
