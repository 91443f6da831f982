#include "tests/Harness/AgentLibrary.h"

#include <windows.h>

namespace Torvane::Testing
{
const wchar_t agentFileName[] = L"TVN_Agent_x86.dll";

std::string AgentLibrary::Load(const std::wstring& path)
{
    const HMODULE loaded = LoadLibraryW(path.c_str());
    if (loaded == nullptr)
    {
        return "the library can't be loaded, error " + std::to_string(GetLastError());
    }
    module = loaded;
    std::string missing;
#define TORVANE_RESOLVE(Name)                                                                           \
    Name = reinterpret_cast<decltype(&::Name)>(reinterpret_cast<void*>(GetProcAddress(loaded, #Name))); \
    if (Name == nullptr)                                                                                \
    {                                                                                                   \
        missing += " " #Name;                                                                           \
    }
    TORVANE_AGENT_EXPORTS(TORVANE_RESOLVE)
#undef TORVANE_RESOLVE
    return missing.empty() ? std::string() : "exports are missing:" + missing;
}

void AgentLibrary::Unload()
{
    FreeLibrary(static_cast<HMODULE>(module));
    module = nullptr;
}

std::wstring ExecutableFolder()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring text = path;
    return text.substr(0, text.find_last_of(L"\\/"));
}

std::wstring AgentFolder()
{
    return ExecutableFolder() + L"\\agent\\x86";
}

namespace
{
void RemoveFolder(const std::wstring& folder)
{
    WIN32_FIND_DATAW entry = {};
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
    {
        return;
    }
    do
    {
        const std::wstring name = entry.cFileName;
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        {
            DeleteFileW((folder + L"\\" + name).c_str());
        }
        else if (name != L"." && name != L"..")
        {
            RemoveFolder(folder + L"\\" + name);
        }
    }
    while (FindNextFileW(search, &entry));
    FindClose(search);
    RemoveDirectoryW(folder.c_str());
}
} // namespace

std::wstring CopyAgentFolder(bool withBridge)
{
    wchar_t temporary[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temporary);
    std::wstring folder = temporary + (L"TorvaneTest_" + std::to_wstring(GetCurrentProcessId()));
    RemoveFolder(folder); // what an earlier process of this id has left
    for (const wchar_t* part : {L"", L"\\agent", L"\\x86"})
    {
        folder += part;
        if (!CreateDirectoryW(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
        {
            return {};
        }
    }
    for (const wchar_t* file : {agentFileName, bridgeFileName})
    {
        const std::wstring target = folder + L"\\" + file;
        DeleteFileW(target.c_str());
        if ((withBridge || file == agentFileName) &&
            !CopyFileW((AgentFolder() + L"\\" + file).c_str(), target.c_str(), FALSE))
        {
            return {};
        }
    }
    return folder;
}
} // namespace Torvane::Testing
