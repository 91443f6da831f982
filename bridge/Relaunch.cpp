#include "bridge/Relaunch.h"

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

bool WaitForProcessEnd(uint32_t processId, uint32_t milliseconds)
{
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, processId);
    if (process == nullptr)
    {
        return true; // it has ended
    }
    const bool ended = WaitForSingleObject(process, milliseconds) == WAIT_OBJECT_0;
    CloseHandle(process);
    return ended;
}

uint32_t Launch(const LaunchInfo& image)
{
    std::wstring commandLine = image.commandLine; // the OS writes into it
    std::vector<uint8_t> environment = image.environment;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(image.executablePath.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_UNICODE_ENVIRONMENT, environment.empty() ? nullptr : environment.data(),
                        image.currentDirectory.empty() ? nullptr : image.currentDirectory.c_str(), &startup,
                        &process))
    {
        return 0;
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return process.dwProcessId;
}
} // namespace Torvane::Bridge
