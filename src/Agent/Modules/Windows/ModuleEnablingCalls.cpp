#include "Agent/Modules/Windows/ModuleEnabling.h"
#include "Shared/Container/Array.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Torvane/Agent.h"

using namespace Torvane;

namespace
{
ModuleFilters WideFilter(void* context, TvnModuleFilter filter)
{
    return {nullptr, nullptr, context, filter};
}

ModuleFilters NarrowFilter(void* context, TvnModuleFilterANSI filter)
{
    return {context, filter, nullptr, nullptr};
}

/// Narrow paths of the host, as wide ones.
struct WidePaths
{
    Array<FixedWideString> texts;
    Array<const wchar_t*> pointers;

    WidePaths(const char* const* paths, uint32_t count)
        : texts(count)
        , pointers(count)
    {
        for (uint32_t i = 0; i < count; ++i)
        {
            texts[i] = WidenPath(paths[i]);
            pointers[i] = texts[i].text;
        }
    }
};
} // namespace

extern "C" void TVN_CALL TvnEnableModule(const wchar_t* path, TvnModuleOptions options, void* context,
                                         TvnModuleFilter filter)
{
    LogDebug(TVN_HERE, "API TvnEnableModule");
    LogInfo(0, TVN_HERE, "Enabling module with options %u", options);
    TvnGenericEnableModules(&path, 1, options, WideFilter(context, filter), true);
}

extern "C" void TVN_CALL TvnEnableModuleANSI(const char* path, TvnModuleOptions options, void* context,
                                             TvnModuleFilterANSI filter)
{
    LogDebug(TVN_HERE, "API TvnEnableModuleANSI");
    LogInfo(0, TVN_HERE, "Enabling module with options %u", options);
    const FixedWideString widePath = WidenPath(path);
    const wchar_t* text = widePath.text;
    TvnGenericEnableModules(&text, 1, options, NarrowFilter(context, filter), true);
}

extern "C" void TVN_CALL TvnEnableModules(const wchar_t* const* paths, uint32_t count,
                                          TvnModuleOptions options, void* context, TvnModuleFilter filter)
{
    LogDebug(TVN_HERE, "API TvnEnableModules");
    LogInfo(0, TVN_HERE, "Enabling %zu module(s) with options %u", size_t{count}, options);
    TvnGenericEnableModules(paths, count, options, WideFilter(context, filter), true);
}

extern "C" void TVN_CALL TvnEnableModulesANSI(const char* const* paths, uint32_t count,
                                              TvnModuleOptions options, void* context,
                                              TvnModuleFilterANSI filter)
{
    LogDebug(TVN_HERE, "API TvnEnableModulesANSI");
    LogInfo(0, TVN_HERE, "Enabling %zu module(s) with options %u", size_t{count}, options);
    const WidePaths widePaths(paths, count);
    TvnGenericEnableModules(widePaths.pointers.pointer, count, options, NarrowFilter(context, filter), true);
}

extern "C" void TVN_CALL TvnDisableModule(const wchar_t* path, TvnModuleOptions options, void* context,
                                          TvnModuleFilter filter)
{
    LogDebug(TVN_HERE, "API TvnDisableModule");
    LogInfo(0, TVN_HERE, "Disabling module with options %u", options);
    TvnGenericDisableModules(&path, 1, options, WideFilter(context, filter));
}

extern "C" void TVN_CALL TvnDisableModuleANSI(const char* path, TvnModuleOptions options, void* context,
                                              TvnModuleFilterANSI filter)
{
    LogDebug(TVN_HERE, "API TvnDisableModuleANSI");
    LogInfo(0, TVN_HERE, "Disabling module with options %u", options);
    const FixedWideString widePath = WidenPath(path);
    const wchar_t* text = widePath.text;
    TvnGenericDisableModules(&text, 1, options, NarrowFilter(context, filter));
}

extern "C" void TVN_CALL TvnDisableModules(const wchar_t* const* paths, uint32_t count,
                                           TvnModuleOptions options, void* context, TvnModuleFilter filter)
{
    LogDebug(TVN_HERE, "API TvnDisableModules");
    LogInfo(0, TVN_HERE, "Disabling %zu module(s) with options %u", size_t{count}, options);
    TvnGenericDisableModules(paths, count, options, WideFilter(context, filter));
}

extern "C" void TVN_CALL TvnDisableModulesANSI(const char* const* paths, uint32_t count,
                                               TvnModuleOptions options, void* context,
                                               TvnModuleFilterANSI filter)
{
    LogDebug(TVN_HERE, "API TvnDisableModulesANSI");
    LogInfo(0, TVN_HERE, "Disabling %zu module(s) with options %u", size_t{count}, options);
    const WidePaths widePaths(paths, count);
    TvnGenericDisableModules(widePaths.pointers.pointer, count, options, NarrowFilter(context, filter));
}
