#include "tests/Support/Integration/AgentLibrary.h"

#include "tests/Support/Files.h"

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
    const std::wstring path = ProgramPath();
    return path.substr(0, path.find_last_of(L"\\/"));
}

std::wstring AgentFolder()
{
    return ExecutableFolder() + L"\\agent\\x86";
}

std::wstring ImagePath(const std::wstring& name)
{
    return ExecutableFolder() + L"\\images\\" + name + L".dll";
}

std::wstring CopyAgentFolder(bool withBridge)
{
    std::wstring folder = TemporaryFilesFolder() + L"TorvaneTest_" + std::to_wstring(GetCurrentProcessId());
    RemoveFolder(folder); // what an earlier process of this id has left
    for (const wchar_t* part : {L"", L"\\agent", L"\\x86"})
    {
        folder += part;
        if (!CreateDirectoryW(folder.c_str(), nullptr) && !Exists(folder))
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
