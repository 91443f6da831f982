#include "bridge/Relaunch.h"

#include "bridge/Commands.h"
#include "bridge/Text.h"

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
std::wstring ToString(const InlineWideText& text)
{
    return {reinterpret_cast<const wchar_t*>(text.text), text.length};
}
} // namespace

LaunchInfo ReadLaunchInfo(const Received<RestartBlob>& restart)
{
    return {ToString(restart->executablePath), restart.Utf16String(restart->commandLine),
            ToString(restart->currentDirectory),
            restart.Data(restart->environment, restart->environmentSize)};
}

Result<Received<RestartBlob>> RequestRestart(Session& session, uint32_t milliseconds)
{
    if (session.AreThreadsSuspended())
    {
        return Failure{"the host's threads are suspended, one of which has to agree to a restart"};
    }
    if (!SendRequestRestart(session.link))
    {
        return ClosedPipe();
    }
    auto restart = session.link.WaitFor<RestartBlob>(milliseconds);
    if (!restart)
    {
        return Failure{"the host hasn't agreed to a restart: " + restart.Reason()};
    }
    return restart;
}

Result<uint32_t> CompleteRestart(Session& session, const Received<RestartBlob>& restart,
                                 uint32_t milliseconds)
{
    const LaunchInfo info = ReadLaunchInfo(restart);
    if (!SendExitProcessForHotRestart(session.link, restart->event))
    {
        return ClosedPipe();
    }
    if (!session.host.WaitForEnd(milliseconds))
    {
        return Failure{"the host hasn't ended within " + std::to_string(milliseconds) + " milliseconds"};
    }
    return Launch(info);
}

Result<uint32_t> Launch(const LaunchInfo& info)
{
    std::wstring commandLine = info.commandLine; // the OS writes into it
    std::vector<uint8_t> environment = info.environment;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(info.executablePath.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_UNICODE_ENVIRONMENT, environment.empty() ? nullptr : environment.data(),
                        info.currentDirectory.empty() ? nullptr : info.currentDirectory.c_str(), &startup,
                        &process))
    {
        return OSFailure(Utf8(info.executablePath) + " can't be started");
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return process.dwProcessId;
}
} // namespace Torvane::Bridge
