#include "bridge/PatchTargets.h"

#include "bridge/DebugSymbols.h"
#include "bridge/Text.h"

#include <fstream>
#include <iterator>
#include <string.h>

#include <windows.h>

#include <wchar.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t mostHooks = 64; // entries of a table

std::vector<uint8_t> ReadFileOf(const std::wstring& path)
{
    std::vector<uint8_t> bytes;
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return bytes;
    }
    bytes.resize(GetFileSize(file, nullptr));
    DWORD count = 0;
    bytes.resize(ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) ? count : 0);
    CloseHandle(file);
    return bytes;
}

bool IsOfOS(const std::wstring& path)
{
    wchar_t folder[MAX_PATH] = {};
    const UINT length = GetSystemWindowsDirectoryW(folder, MAX_PATH);
    return _wcsnicmp(path.c_str(), folder, length) == 0 && path[length] == L'\\';
}

/// Whether the file is the one that the host has loaded: addresses in another build would be wrong.
bool IsSameBuild(const ImageSymbols& image, const ExecutableIdentity& loaded)
{
    const std::vector<uint8_t> header = image.FileHeader();
    return image.FileSize() == loaded.fileSize &&
           memcmp(header.data(), loaded.fileHeader, sizeof(loaded.fileHeader)) == 0;
}

std::wstring KeyOf(const EnabledModule& module)
{
    return module.path + L"|" + std::to_wstring(module.base);
}
} // namespace

PatchTargets::Target PatchTargets::Read(const EnabledModule& module, std::string& fault) const
{
    Target target;
    target.module = {Utf8(FileNameOf(module.path)), module.base, {}, {}};
    const ImageSymbols image(ReadFileOf(module.path));
    if (!image.Error().empty() || !IsSameBuild(image, module.executable))
    {
        fault = target.module.name +
                " was built anew since the program has started, so its functions can't be found: start the "
                "program again";
        return target;
    }
    target.module.exports = image.Exports();
    target.module.symbols = image.SymbolTable();
    if (target.module.symbols.empty())
    {
        target.module.symbols = FunctionsOfPdb(module.path);
    }
    for (const char* name : {beforeReloadHooksName, afterReloadHooksName})
    {
        target.hooks[name] = image.FindExport(name);
    }
    return target;
}

std::vector<std::string> PatchTargets::Update()
{
    std::vector<std::string> faults;
    modules.clear();
    keys.clear();
    for (const EnabledModule& enabled : session.Modules())
    {
        if (IsOfOS(enabled.path))
        {
            continue;
        }
        const std::wstring key = KeyOf(enabled);
        auto known = targets.find(key);
        if (known == targets.end())
        {
            std::string fault;
            known = targets.emplace(key, Read(enabled, fault)).first;
            if (!fault.empty())
            {
                faults.push_back(fault);
            }
        }
        modules.push_back(known->second.module);
        keys.push_back(key);
    }
    return faults;
}

std::vector<std::pair<RemoteAddress, RemoteAddress>> PatchTargets::HookTables(const std::string& name) const
{
    std::vector<std::pair<RemoteAddress, RemoteAddress>> tables;
    for (const std::wstring& key : keys)
    {
        const Target& target = targets.at(key);
        const auto hook = target.hooks.find(name);
        if (hook == target.hooks.end() || hook->second == 0)
        {
            continue;
        }
        const RemoteAddress first = target.module.base + hook->second;
        RemoteAddress end = first;
        for (uint32_t i = 0; i < mostHooks; ++i, end += sizeof(uint32_t))
        {
            uint32_t entry = 0;
            const std::vector<uint8_t> bytes = session.host.Read(end, sizeof(entry));
            if (!bytes.empty())
            {
                memcpy(&entry, bytes.data(), sizeof(entry));
            }
            if (entry == 0 || !session.host.CanExecute(entry, 1))
            {
                break;
            }
        }
        tables.emplace_back(first, end);
    }
    return tables;
}
} // namespace Torvane::Bridge
