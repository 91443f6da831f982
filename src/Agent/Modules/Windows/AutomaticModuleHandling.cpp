#include "Agent/Modules/Windows/AutomaticModuleHandling.h"

#include "Agent/Modules/Windows/ModuleEnabling.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/MemorySystem.h"
#include "Shared/OS/Windows/WindowsInternalAPI.h"
#include "Torvane/Agent.h"

#include <wchar.h>

namespace Torvane
{
namespace
{
/// The OS's `LDR_DLL_NOTIFICATION_DATA`, which is documented but in no header.
struct LoaderNotificationData
{
    ULONG flags;
    const UNICODE_STRING* fullName;
    const UNICODE_STRING* baseName;
    void* base;
    ULONG imageSize;
};
static_assert(sizeof(LoaderNotificationData) == 20);

/// `LDR_DLL_NOTIFICATION_REASON_LOADED` and `LDR_DLL_NOTIFICATION_REASON_UNLOADED`.
constexpr uint32_t reasonLoaded = 1;
constexpr uint32_t reasonUnloaded = 2;

struct ModuleNotification
{
    void (*onNotification)(uint32_t reason, const wchar_t* path);
    void* cookie;
};
static_assert(sizeof(ModuleNotification) == 8);

/// No lock for these: the host's thread writes, the threads that load libraries read.
volatile bool enabled = false; ///< what stays registered does nothing once shutdown has begun
ModuleFilters automaticFilters;
Allocation moduleNotification;

/// Runs on whichever thread loads or frees a library, inside the loader.
void OnModuleNotification(uint32_t reason, const wchar_t* path)
{
    if (wcsstr(path, L".patch_") != nullptr)
    {
        return;
    }
    if (reason == reasonLoaded)
    {
        LogInfo(0, TVN_HERE, "Automatically enabling module");
        TvnGenericEnableModules(&path, 1, ExactlyTheseModules, automaticFilters, false);
    }
    else if (reason == reasonUnloaded)
    {
        LogInfo(0, TVN_HERE, "Automatically disabling module");
        TvnGenericDisableModules(&path, 1, ExactlyTheseModules, automaticFilters);
    }
}

void CALLBACK OnLoaderNotification(ULONG reason, const LoaderNotificationData* data, void* context)
{
    if (enabled && (reason == reasonLoaded || reason == reasonUnloaded))
    {
        static_cast<const ModuleNotification*>(context)->onNotification(reason, data->fullName->Buffer);
    }
}

void TvnGenericEnableAutomaticHandlingOfDynamicallyLoadedModules()
{
    LogDebug(TVN_HERE, "API TvnGenericEnableAutomaticHandlingOfDynamicallyLoadedModules");
    enabled = true;
    const Allocation block = Allocate(sizeof(ModuleNotification));
    ModuleNotification* notification = static_cast<ModuleNotification*>(block.pointer);
    notification->onNotification = OnModuleNotification;
    notification->cookie = nullptr;
    const NTSTATUS status = GetWindowsInternalAPI().LdrRegisterDllNotification(
        ULONG{0}, reinterpret_cast<void*>(&OnLoaderNotification), notification, &notification->cookie);
    if (status < 0)
    {
        LogError(TVN_HERE, "Call to function LdrRegisterDllNotification failed. Error: 0x%X", status);
    }
    moduleNotification = block;
}
} // namespace

void ShutdownAutomaticModuleHandling()
{
    enabled = false;
    if (moduleNotification.pointer == nullptr)
    {
        return;
    }
    const ModuleNotification* notification =
        static_cast<const ModuleNotification*>(moduleNotification.pointer);
    const NTSTATUS status = GetWindowsInternalAPI().LdrUnregisterDllNotification(notification->cookie);
    if (status < 0)
    {
        LogError(TVN_HERE, "Call to function LdrUnregisterDllNotification failed. Error: 0x%X", status);
    }
    Free(moduleNotification);
    automaticFilters = ModuleFilters{};
}
} // namespace Torvane

using namespace Torvane;

extern "C" void TVN_CALL TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(void* context,
                                                                              TvnModuleFilter filter)
{
    LogDebug(TVN_HERE, "API TvnEnableAutomaticHandlingOfDynamicallyLoadedModules");
    automaticFilters.wideContext = context;
    automaticFilters.wideFilter = filter;
    TvnGenericEnableAutomaticHandlingOfDynamicallyLoadedModules();
}

extern "C" void TVN_CALL TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(void* context,
                                                                                  TvnModuleFilterANSI filter)
{
    LogDebug(TVN_HERE, "API TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI");
    automaticFilters.narrowContext = context;
    automaticFilters.narrowFilter = filter;
    TvnGenericEnableAutomaticHandlingOfDynamicallyLoadedModules();
}
