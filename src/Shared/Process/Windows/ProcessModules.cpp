#include "Shared/Process/Windows/ProcessModules.h"

#include "Shared/Executable/Windows/PE.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ModulePathSet.h"

#include <psapi.h>

namespace Torvane
{
namespace
{
constexpr uint32_t initialCapacity = 1024;
constexpr uint32_t pathCapacity = 1024;
static_assert(sizeof(MODULEINFO) == 12);

struct PendingModule
{
    HMODULE handle;
};

using ModuleStack = DynamicArray<PendingModule>;

FixedWideString GetModulePath(HMODULE module)
{
    FixedWideString path = {};
    GetModuleFileNameW(module, path.text, pathCapacity);
    while (path.length < pathCapacity && path.text[path.length] != L'\0')
    {
        ++path.length;
    }
    return path;
}

void Enter(ModulePathSet& visited, const FixedWideString& path)
{
    OwnedWideString copy = CopyWide(path.text);
    visited.Insert(copy);
}

void PushStartModules(const wchar_t* const* names, uint32_t count, ModuleStack& pending)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        const HMODULE module = GetModuleHandleW(names[i]);
        if (module == nullptr)
        {
            LogError(TVN_HERE, "Failed to load module %ls", names[i]);
            continue;
        }
        pending.Append({module});
    }
}

void PushNewImports(const ImportedModuleNameList& names, ModulePathSet& visited, ModuleStack& pending)
{
    for (const ImportedModuleName& name : names)
    {
        const HMODULE module = GetModuleHandleA(name.text);
        if (module == nullptr)
        {
            continue;
        }
        const FixedWideString path = GetModulePath(module);
        if (!visited.Contains(path.text, path.length))
        {
            Enter(visited, path);
            pending.Append({module});
        }
    }
}

void FollowImports(const FixedWideString& path, ModulePathSet& visited, ModuleStack& pending)
{
    Result<ImageFile> image = OpenImage(path.text);
    if (image.error != nullptr)
    {
        return;
    }
    {
        const ImageSectionList sections = GatherImageSections(image.payload);
        const ImportedModuleNameList names =
            GatherImportedModuleNames(image.payload, sections.pointer, sections.count);
        PushNewImports(names, visited, pending);
    }
    CloseImage(image.payload);
}
} // namespace

ModuleIdentity GetModuleIdentity(HMODULE module)
{
    ModuleIdentity identity = {};
    identity.path = GetModulePath(module);
    identity.base = reinterpret_cast<uintptr_t>(module);
    MODULEINFO information = {};
    K32GetModuleInformation(GetCurrentProcess(), module, &information, sizeof(information));
    identity.imageSize = information.SizeOfImage;
    return identity;
}

ModuleIdentityList GatherImportClosure(const wchar_t* const* names, uint32_t count)
{
    ModuleIdentityList modules(initialCapacity);
    ModuleStack pending(initialCapacity);
    ModulePathSet visited;
    PushStartModules(names, count, pending);
    while (pending.count != 0)
    {
        const HMODULE module = pending[--pending.count].handle;
        const ModuleIdentity identity = GetModuleIdentity(module);
        Enter(visited, identity.path);
        modules.Append(identity);
        FollowImports(identity.path, visited, pending);
    }
    return modules;
}
} // namespace Torvane
