#include "samples/LiveReload/ReloadFiles.h"

#include <windows.h>

namespace Torvane::Sample
{
namespace
{
std::wstring ReadFolder()
{
    wchar_t text[MAX_PATH] = {};
    GetEnvironmentVariableW(L"TORVANE_LIVE_RELOAD_FOLDER", text, MAX_PATH);
    return text;
}

HANDLE Create(const std::wstring& path)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    CREATE_ALWAYS, 0, nullptr);
    return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

void Append(HANDLE file, const std::string& text)
{
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}
} // namespace

ReloadFiles::ReloadFiles()
    : folder(ReadFolder())
    , log(Create(folder + L"\\bridge.log"))
{
}

ReloadFiles::~ReloadFiles()
{
    if (log != nullptr)
    {
        CloseHandle(log);
    }
}

std::wstring ReloadFiles::Path(uint32_t number, const std::wstring& extension) const
{
    return folder + L"\\" + std::to_wstring(number) + L"." + extension;
}

bool ReloadFiles::Exists(uint32_t number, const std::wstring& extension) const
{
    return GetFileAttributesW(Path(number, extension).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void ReloadFiles::Write(uint32_t number, const std::wstring& extension, const std::string& content) const
{
    const std::wstring unfinished = Path(number, extension + L".part");
    const HANDLE file = Create(unfinished);
    Append(file, content);
    CloseHandle(file);
    MoveFileExW(unfinished.c_str(), Path(number, extension).c_str(), MOVEFILE_REPLACE_EXISTING);
}

void ReloadFiles::Report(const std::string& line) const
{
    Append(log, line + "\n");
}
} // namespace Torvane::Sample
