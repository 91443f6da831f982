#include "Agent/Communication/Windows/BridgeProcess.h"

#include "Agent/Protocol/Names.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/Process.h"

#include <windows.h>

namespace Torvane
{
namespace
{
SpawnedProcess bridge = {};
bool bridgeSpawned = false;
} // namespace

FixedWideString GetLibraryFolder()
{
    HMODULE library = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&bridge), &library);
    wchar_t path[1024] = {};
    const DWORD length = GetModuleFileNameW(library, path, 1024);
    return GetDirectory(path, length);
}

bool SpawnBridge(const FixedWideString& identifier)
{
    const FixedWideString folder = GetLibraryFolder();
    FixedWideString path = folder;
    path.Append(bridgePathSuffix);
    LogInfo(0, TVN_HERE, "Spawning bridge process at %ls", path.text);
    const Result<SpawnedProcess> spawned = Spawn(path.text, folder.text, identifier.text);
    if (spawned.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to spawn bridge process");
        return false;
    }
    LogSuccess(TVN_HERE, "Spawned bridge process");
    bridge = spawned.payload;
    bridgeSpawned = true;
    return true;
}

void ReleaseBridge()
{
    if (bridgeSpawned)
    {
        ReleaseSpawnedProcess(bridge);
        bridgeSpawned = false;
    }
}
} // namespace Torvane
