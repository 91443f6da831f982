#include "Agent/Modules/Windows/ModuleEnabling.h"

#include "Agent/HotReload/Windows/HotReloadOS.h"
#include "Agent/Modules/Windows/ExecutableIdentity.h"
#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Protocol/HostAddress.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Container/OwnedString.h"
#include "Shared/Executable/Windows/PE.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessMemory.h"
#include "Shared/Process/Windows/ProcessModules.h"

#include <stdlib.h>

namespace Torvane
{
namespace
{
static_assert(sizeof(ModuleIdentity) == sizeof(WireModuleIdentity), "modules go into Blobs as they are");
static_assert(sizeof(PageRange) == sizeof(WirePageRange), "page ranges go into Blobs as they are");

constexpr uint32_t initialPageRanges = 1024;

template<typename Element>
uint32_t MeasureArray(const DynamicArray<Element>& array)
{
    return array.count * static_cast<uint32_t>(sizeof(Element));
}

template<typename Element>
void AppendArray(BlobBuilder& builder, RelativeArray& field, const DynamicArray<Element>& array)
{
    builder.AppendArray(field, array.pointer, array.count, sizeof(Element));
}

// Choosing modules

ModuleIdentityList GatherNamedModules(const wchar_t* const* paths, uint32_t count,
                                      CheckedFormat<const wchar_t*> failure)
{
    ModuleIdentityList modules;
    for (uint32_t i = 0; i < count; ++i)
    {
        const HMODULE module = GetModuleHandleW(paths[i]);
        if (module == nullptr)
        {
            LogError(TVN_HERE, failure, paths[i]);
            continue;
        }
        modules.Append(GetModuleIdentity(module));
    }
    return modules;
}

bool IsKept(const ModuleFilters& filters, const wchar_t* path)
{
    if (filters.wideFilter != nullptr)
    {
        return filters.wideFilter(filters.wideContext, path);
    }
    if (filters.narrowFilter == nullptr)
    {
        return true;
    }
    return filters.narrowFilter(filters.narrowContext, NarrowFromWide(path).pointer);
}

/// A base of 0 marks a module that is to be skipped.
bool IsSkipped(const ModuleIdentity& module)
{
    return module.base == 0;
}

/// \return whether any module is left.
bool FilterModules(ModuleIdentityList& modules, const ModuleFilters& filters)
{
    bool anyLeft = false;
    for (uint32_t i = 0; i < modules.count; ++i)
    {
        if (IsKept(filters, modules[i].path.text))
        {
            anyLeft = true;
        }
        else
        {
            modules[i].base = 0;
        }
    }
    return anyLeft;
}

int CompareLargestFirst(const void* left, const void* right)
{
    const uint32_t leftSize = static_cast<const ModuleIdentity*>(left)->imageSize;
    const uint32_t rightSize = static_cast<const ModuleIdentity*>(right)->imageSize;
    return (leftSize < rightSize) - (leftSize > rightSize);
}

void SortLargestFirst(ModuleIdentityList& modules)
{
    qsort(modules.pointer, modules.count, sizeof(ModuleIdentity), CompareLargestFirst);
}

// What is sent

/// Modules with their files, in one order.
struct ModulesToSend
{
    ModuleIdentityList modules;
    DynamicArray<ExecutableIdentity> executables;

    explicit ModulesToSend(uint32_t capacity)
        : modules(capacity)
        , executables(capacity)
    {
    }

    /// \return false, with an Error line, if the module's file can't be read as an image.
    bool Append(const ModuleIdentity& module)
    {
        Result<ImageFile> image = OpenImage(module.path.text);
        if (image.error != nullptr)
        {
            LogError(TVN_HERE, "Failed to open executable %ls", module.path.text);
            return false;
        }
        const ExecutableIdentity executable = ReadExecutableIdentity(image.payload);
        CloseImage(image.payload);

        ModuleIdentity normalized = module;
        normalized.path = NormalizePath(module.path.text);
        modules.Append(normalized);
        executables.Append(executable);
        return true;
    }
};

/// The state of the modules' memory.
struct PagesToSend
{
    DynamicArray<uint64_t> rangeCounts;
    PageRangeList ranges;
    DynamicArray<uint64_t> zeros;
    PageRangeList secondRanges;

    explicit PagesToSend(uint32_t capacity)
        : rangeCounts(capacity)
        , ranges(initialPageRanges)
        , zeros(capacity)
        , secondRanges(initialPageRanges)
    {
    }

    void Append(const ModuleIdentity& module)
    {
        const HMODULE handle = ToPointer<HMODULE>(module.base);
        const PageRangeList found = GatherPageRanges(handle, GetModuleIdentity(handle).imageSize);
        rangeCounts.Append(found.count);
        for (const PageRange& range : found)
        {
            ranges.Append(range);
        }
        zeros.Append(0);
    }
};

OwnedBlob BuildEnableModules(const ModulesToSend& outgoing, const PagesToSend& pages, const Latch& latch)
{
    RecordBuilder<EnableModulesBlob> builder(MeasureArray(outgoing.modules) +
                                             MeasureArray(outgoing.executables) +
                                             MeasureArray(pages.rangeCounts) + MeasureArray(pages.ranges) +
                                             MeasureArray(pages.zeros) + MeasureArray(pages.secondRanges));
    EnableModulesBlob& fixed = builder.Fixed();
    AppendArray(builder, fixed.modules, outgoing.modules);
    AppendArray(builder, fixed.executables, outgoing.executables);
    AppendArray(builder, fixed.pageRangeCounts, pages.rangeCounts);
    AppendArray(builder, fixed.pageRanges, pages.ranges);
    AppendArray(builder, fixed.zeros, pages.zeros);
    AppendArray(builder, fixed.secondPageRanges, pages.secondRanges);
    fixed.latch = ToSlot(&latch);
    return builder.Finish();
}

OwnedBlob BuildDisableModules(const ModulesToSend& outgoing)
{
    RecordBuilder<DisableModulesBlob> builder(MeasureArray(outgoing.modules) +
                                              MeasureArray(outgoing.executables));
    DisableModulesBlob& fixed = builder.Fixed();
    AppendArray(builder, fixed.modules, outgoing.modules);
    AppendArray(builder, fixed.executables, outgoing.executables);
    return builder.Finish();
}

void PrepareModule(const ModuleIdentity& module, ModulesToSend& outgoing, PagesToSend& pages)
{
    LogInfo(0, TVN_HERE, "Enabling module %ls", module.path.text);
    if (!outgoing.Append(module))
    {
        return;
    }
    PrepareSectionsForPatching(module.path.text, ToPointer(module.base));
    pages.Append(module);
}
} // namespace

void TvnGenericEnableModules(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                             const ModuleFilters& filters, bool wait)
{
    LogDebug(TVN_HERE, "API TvnGenericEnableModules");
    ModuleIdentityList gathered = (options & IncludeImports) != 0
                                      ? GatherImportClosure(paths, count)
                                      : GatherNamedModules(paths, count, "Failed to load module %ls");
    if (!FilterModules(gathered, filters))
    {
        return;
    }
    SortLargestFirst(gathered);

    ModulesToSend outgoing(gathered.count);
    PagesToSend pages(gathered.count);
    for (const ModuleIdentity& module : gathered)
    {
        if (!IsSkipped(module))
        {
            PrepareModule(module, outgoing, pages);
        }
    }

    Latch latch(gathered.count);
    LatchRegistry& latches = Receiver::GetLatches();
    latches.Register(latch);
    PushBlob(BuildEnableModules(outgoing, pages, latch));
    if (wait)
    {
        latch.Wait();
    }
    latches.Unregister(latch);
}

void TvnGenericDisableModules(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                              const ModuleFilters& filters)
{
    LogDebug(TVN_HERE, "API TvnGenericDisableModules");
    ModuleIdentityList gathered = (options & IncludeImports) != 0
                                      ? GatherImportClosure(paths, count)
                                      : GatherNamedModules(paths, count, "Failed to unload module %ls");
    if (!FilterModules(gathered, filters))
    {
        return;
    }
    ModulesToSend outgoing(gathered.count);
    for (const ModuleIdentity& module : gathered)
    {
        if (!IsSkipped(module))
        {
            LogInfo(0, TVN_HERE, "Disabling module %ls", module.path.text);
            outgoing.Append(module);
        }
    }
    PushBlob(BuildDisableModules(outgoing));
}
} // namespace Torvane
