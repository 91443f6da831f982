#include "Shared/Foundation/Logger.h"
#include "Torvane/Agent.h"

using namespace Torvane;

extern "C" void TVN_CALL TvnEnableModule(const wchar_t*, TvnModuleOptions, void*, TvnModuleFilter)
{
    LogDebug(TVN_HERE, "API TvnEnableModule");
}

extern "C" void TVN_CALL TvnEnableModuleANSI(const char*, TvnModuleOptions, void*, TvnModuleFilterANSI)
{
    LogDebug(TVN_HERE, "API TvnEnableModuleANSI");
}

extern "C" void TVN_CALL TvnEnableModules(const wchar_t* const*, uint32_t, TvnModuleOptions, void*,
                                          TvnModuleFilter)
{
    LogDebug(TVN_HERE, "API TvnEnableModules");
}

extern "C" void TVN_CALL TvnEnableModulesANSI(const char* const*, uint32_t, TvnModuleOptions, void*,
                                              TvnModuleFilterANSI)
{
    LogDebug(TVN_HERE, "API TvnEnableModulesANSI");
}

extern "C" void TVN_CALL TvnDisableModule(const wchar_t*, TvnModuleOptions, void*, TvnModuleFilter)
{
    LogDebug(TVN_HERE, "API TvnDisableModule");
}

extern "C" void TVN_CALL TvnDisableModuleANSI(const char*, TvnModuleOptions, void*, TvnModuleFilterANSI)
{
    LogDebug(TVN_HERE, "API TvnDisableModuleANSI");
}

extern "C" void TVN_CALL TvnDisableModules(const wchar_t* const*, uint32_t, TvnModuleOptions, void*,
                                           TvnModuleFilter)
{
    LogDebug(TVN_HERE, "API TvnDisableModules");
}

extern "C" void TVN_CALL TvnDisableModulesANSI(const char* const*, uint32_t, TvnModuleOptions, void*,
                                               TvnModuleFilterANSI)
{
    LogDebug(TVN_HERE, "API TvnDisableModulesANSI");
}

extern "C" void TVN_CALL TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(void*, TvnModuleFilter)
{
    LogDebug(TVN_HERE, "API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules");
}

extern "C" void TVN_CALL TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(void*, TvnModuleFilterANSI)
{
    LogDebug(TVN_HERE, "API TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI");
}
