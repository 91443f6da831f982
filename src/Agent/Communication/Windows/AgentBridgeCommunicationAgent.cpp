#include "Agent/Communication/Windows/AgentBridgeCommunicationAgent.h"

#include "Agent/Communication/Windows/CommunicationThreads.h"
#include "Agent/Communication/Windows/ReceiverInitialization.h"
#include "Agent/Communication/Windows/Registration.h"
#include "Agent/HostCalls/Windows/HostCalls.h"
#include "Agent/HotReload/Windows/PatchLoading.h"
#include "Agent/Transport/Windows/Heartbeat.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/ResultOS.h"
#include "Shared/Process/Windows/Process.h"
#include "Shared/Process/Windows/Thread.h"

#include <windows.h>

namespace Torvane::AgentBridgeCommunicationAgent
{
namespace
{
constexpr uint32_t agentBridgeMemorySize = 0x100000;
constexpr DWORD pipeBufferSize = 0x20000;

void CreateEventOrPanic(Event& event, const char* name, const char* panicWord)
{
    event.handle = Expect(Event::Create(name), panicWord);
}

void OpenAgentBridgeMemory(const FixedWideString& identifier)
{
    FixedWideString name = {};
    name.Assign(L"TVN_AgentBridge_Memory_");
    name.Append(identifier.text);
    initializationState.memory =
        Expect(CreateNamedSharedMemory(name.text, agentBridgeMemorySize),
               "Cannot create agent bridge shared memory for process %ls", identifier.text);
    name.Assign(L"TVN_AgentBridge_Mutex_");
    name.Append(identifier.text);
    initializationState.mutex.handle =
        Expect(InterprocessMutex::Create(name.text), "Cannot create agent bridge mutex for process %ls",
               identifier.text);
}

Result<HANDLE> CreatePipe(const wchar_t* prefix, const FixedWideString& identifier)
{
    FixedWideString name = {};
    name.Format(L"%ls%ls", prefix, identifier.text);
    const HANDLE pipe =
        CreateNamedPipeW(name.text, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                         PIPE_UNLIMITED_INSTANCES, pipeBufferSize, pipeBufferSize, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE)
    {
        return MakeOSError("CreateNamedPipeW failed.");
    }
    return Success(pipe);
}

bool CreatePipes(const FixedWideString& identifier)
{
    LogDebug(TVN_HERE, "Creating communication pipes");
    const Result<HANDLE> agent = CreatePipe(L"\\\\.\\pipe\\TVN_Agent", identifier);
    if (agent.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to create agent pipe");
        return false;
    }
    senderState.agentPipe = agent.payload;
    const Result<HANDLE> bridge = CreatePipe(L"\\\\.\\pipe\\TVN_Bridge", identifier);
    if (bridge.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to create bridge pipe");
        return false;
    }
    bridgePipe = bridge.payload;
    return true;
}

void CreateThreadEvents()
{
    LogDebug(TVN_HERE, "Creating synchronization events");
    CreateEventOrPanic(heartbeatExit, "Heartbeat thread exit", "Cannot create event for heart beat exit");
    CreateEventOrPanic(watchdogEvents.enter, "Watchdog thread enter",
                       "Cannot create event for watchdog enter");
    CreateEventOrPanic(watchdogEvents.exit, "Watchdog thread exit", "Cannot create event for watchdog exit");
    CreateEventOrPanic(watchdogEvents.watch, "Watchdog watch", "Cannot create event for watchdog watch");
    CreateEventOrPanic(senderState.connected, "Sender connected", "Cannot create event for connected sender");
}

void FlushAndDisconnect(HANDLE pipe)
{
    FlushFileBuffers(pipe);
    DisconnectNamedPipe(pipe);
}

void ClosePipe(HANDLE& pipe)
{
    CloseHandle(pipe);
    pipe = INVALID_HANDLE_VALUE;
}

void EndSender()
{
    senderState.connected.Signal();
    PushBlob(Allocation{});
    WaitForThread(initializationState.senderThread);
    senderState.connected.Destroy();
}

void EndWatchdog()
{
    watchdogEvents.watch.Signal();
    watchdogEvents.exit.Signal();
    watchdogEvents.enter.Signal();
    WaitForThread(initializationState.watchdogThread);
    watchdogEvents.watch.Destroy();
    watchdogEvents.exit.Destroy();
    watchdogEvents.enter.Destroy();
}

void EndHeartbeat()
{
    heartbeatExit.Signal();
    WaitForThread(initializationState.heartbeatThread);
    heartbeatExit.Destroy();
}
} // namespace

bool Startup(const FixedWideString& identifier, uint32_t agentType, const wchar_t* projectPreferencesFile,
             const TvnProjectPreferences* projectPreferences)
{
    LogInfo(0, TVN_HERE, "Starting agent-bridge communication using identifier %ls and agent type %u",
            identifier.text, agentType);
    CreateEventOrPanic(initializationState.startupFinished, "Startup finished",
                       "Cannot create event for startup");
    senderState.queue = BlobQueue::Create();
    latchRegistry.Create();
    OpenAgentBridgeMemory(identifier);
    if (!CreatePipes(identifier))
    {
        initializationState.startupFinished.Signal();
        ReportConnectionStatus(ConnectionFailed);
        return false;
    }
    CreateThreadEvents();

    LogDebug(TVN_HERE, "Creating heartbeat thread");
    initializationState.heartbeatThread = StartHeartbeatThread(identifier);
    LogDebug(TVN_HERE, "Creating watchdog thread");
    initializationState.watchdogThread = StartWatchdogThread();
    LogDebug(TVN_HERE, "Creating sender thread");
    initializationState.senderThread = StartSenderThread();

    senderState.registration.projectPreferences =
        BuildRegisterProjectPreferences(projectPreferencesFile, projectPreferences);

    LogDebug(TVN_HERE, "Creating receiver thread");
    initializationState.receiverThread = StartReceiverThread(identifier, agentType);
    return true;
}

void Shutdown()
{
    LogDebug(TVN_HERE, "Shutting down agent-bridge communication");
    if (!initializationState.startupFinished.Wait())
    {
        LogError(TVN_HERE, "Failed to wait for Startup() to complete");
        return;
    }
    CancelSynchronousIo(initializationState.senderThread);
    CancelSynchronousIo(initializationState.receiverThread);
    FlushAndDisconnect(bridgePipe);
    FlushAndDisconnect(senderState.agentPipe);
    WaitForThread(initializationState.receiverThread);
    EndSender();
    EndWatchdog();
    EndHeartbeat();
    ClosePipe(bridgePipe);
    ClosePipe(senderState.agentPipe);
    if (initializationState.bridgeSpawned)
    {
        ReleaseSpawnedProcess(initializationState.bridge);
        initializationState.bridgeSpawned = false;
    }
    BlobQueue::Destroy(senderState.queue);
    initializationState.startupFinished.Destroy();
    latchRegistry.Destroy();
    initializationState.mutex.Destroy();
    CloseNamedSharedMemory(initializationState.memory);
}
} // namespace Torvane::AgentBridgeCommunicationAgent
