#include "Agent/Communication/Windows/ReceiverInitialization.h"

#include "Agent/HostCalls/Windows/HostCalls.h"
#include "Agent/Preferences/Windows/AgentGlobalPreferences.h"
#include "Agent/Preferences/Windows/AgentProjectPreferences.h"
#include "Agent/Protocol/Blob.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/PipeClient.h"
#include "Shared/Process/Windows/Process.h"

#include <string.h>

namespace Torvane
{
InitializationState initializationState;

namespace
{
enum InitializationResult : uint32_t
{
    Initialized = 0,
    BridgeNotSpawned = 10,
    PipeNotConnected = 11,
    ExecutableNotOpened = 12,
};

/// The section holds the size of what follows, then the payload with eight bytes of tail that mean nothing.
void PublishProjectPreferences()
{
    const BlobHeader* header =
        static_cast<const BlobHeader*>(senderState.registration.projectPreferences.pointer);
    const uint32_t size = header->size + static_cast<uint32_t>(sizeof(BlobHeader));
    const ScopedInterprocessLock lock(initializationState.mutex);
    memcpy(initializationState.memory.view, &size, sizeof(size));
    memcpy(initializationState.memory.view + sizeof(size), header + 1, size);
}

FixedWideString GetLibraryFolder()
{
    HMODULE library = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&initializationState), &library);
    wchar_t path[1024] = {};
    const DWORD length = GetModuleFileNameW(library, path, 1024);
    return GetDirectory(path, length);
}

bool SpawnBridge(const FixedWideString& identifier)
{
    const FixedWideString folder = GetLibraryFolder();
    FixedWideString path = folder;
    path.Append(L"\\TVN_Agent_Bridge_x64.exe");
    LogInfo(0, TVN_HERE, "Spawning bridge process at %ls", path.text);
    const Result<SpawnedProcess> bridge = Spawn(path.text, folder.text, identifier.text);
    if (bridge.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to spawn bridge process");
        return false;
    }
    LogSuccess(TVN_HERE, "Spawned bridge process");
    initializationState.bridge = bridge.payload;
    initializationState.bridgeSpawned = true;
    return true;
}

/// \return in milliseconds; a negative number counts as 0.
int32_t ReadTimeout(StringPreference& directoryToBroker)
{
    const BlobHeader* header =
        static_cast<const BlobHeader*>(senderState.registration.projectPreferences.pointer);
    directoryToBroker = MakeProjectPreferences();
    ReadProjectPreferences(directoryToBroker, *reinterpret_cast<const ProjectPreferencesRecord*>(header + 1));
    IntPreference timeout = MakeGlobalPreferences();
    LoadAllGlobalPreferences(timeout, MakeBrokerFolder(directoryToBroker, GetLibraryFolder()));
    return timeout.value;
}

bool WaitForBridge(int32_t timeout)
{
    const uint32_t milliseconds = timeout < 0 ? 0 : static_cast<uint32_t>(timeout);
    LogInfo(0, TVN_HERE, "Waiting for bridge to connect to pipes, timeout %ums", milliseconds);
    const Result<bool> sender = WaitForPipeClient(senderState.agentPipe, milliseconds);
    if (sender.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to wait for sender pipe");
    }
    const Result<bool> receiver = WaitForPipeClient(bridgePipe, milliseconds);
    if (receiver.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to wait for receiver pipe");
    }
    return sender.error == nullptr && receiver.error == nullptr;
}

uint32_t GiveUp(InitializationResult result)
{
    latchRegistry.ReleaseAll();
    initializationState.startupFinished.Signal();
    ReportConnectionStatus(ConnectionFailed);
    return result;
}

AgentThreadIds GetAgentThreadIds()
{
    return {GetThreadId(initializationState.senderThread), GetCurrentThreadId(),
            GetThreadId(initializationState.heartbeatThread),
            GetThreadId(initializationState.watchdogThread)};
}

uint32_t InitializeAndReceive(const FixedWideString& identifier, uint32_t agentType,
                              StringPreference& directoryToBroker)
{
    PublishProjectPreferences();
    if (!SpawnBridge(identifier))
    {
        return GiveUp(BridgeNotSpawned);
    }
    if (!WaitForBridge(ReadTimeout(directoryToBroker)))
    {
        return GiveUp(PipeNotConnected);
    }
    LogSuccess(TVN_HERE, "Pipes connected");
    LogInfo(0, TVN_HERE, "Registering agent with bridge");
    senderState.registration.agent = BuildRegisterAgent(agentType);
    LogInfo(0, TVN_HERE, "Registering process with bridge");
    if (!BuildRegisterProcess(GetAgentThreadIds(), senderState.registration.process))
    {
        return GiveUp(ExecutableNotOpened);
    }
    senderState.connected.Signal();
    initializationState.startupFinished.Signal();
    LogSuccess(TVN_HERE, "Initialization done");
    return RunReceiver();
}
} // namespace

uint32_t InitializeAndReceive(const FixedWideString& identifier, uint32_t agentType)
{
    StringPreference directoryToBroker = {};
    const uint32_t result = InitializeAndReceive(identifier, agentType, directoryToBroker);
    Free(directoryToBroker);
    return result;
}
} // namespace Torvane
