#include "bridge/WatchReport.h"

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
std::wstring Utf16(const std::string& string)
{
    const int size = static_cast<int>(string.size());
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, string.data(), size, nullptr, 0)),
                      L'\0');
    MultiByteToWideChar(CP_UTF8, 0, string.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}
} // namespace

WatchReport::WatchReport(const std::wstring& folder, uint32_t hostProcessId)
    : log(CreateFileW((folder + L"\\bridge.log").c_str(), FILE_APPEND_DATA,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS, 0,
                      nullptr))
    , console(INVALID_HANDLE_VALUE)
{
    // An Agent starts its Bridge with a console of its own that nobody sees.
    FreeConsole();
    if (AttachConsole(hostProcessId))
    {
        SetConsoleCtrlHandler(nullptr, TRUE); // Ctrl-C is for the host, whose end is this process's
        console = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    }
}

WatchReport::~WatchReport()
{
    for (const HANDLE handle : {log, console})
    {
        if (handle != INVALID_HANDLE_VALUE)
        {
            CloseHandle(handle);
        }
    }
}

void WatchReport::Line(const std::string& line) const
{
    DWORD count = 0;
    const std::string bytes = line + "\n";
    WriteFile(log, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
    const std::wstring text = L"torvane: " + Utf16(line) + L"\r\n";
    WriteConsoleW(console, text.data(), static_cast<DWORD>(text.size()), &count, nullptr);
}
} // namespace Torvane::Bridge
