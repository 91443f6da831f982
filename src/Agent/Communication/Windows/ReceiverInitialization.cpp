#include "Agent/Communication/Windows/ReceiverInitialization.h"

#include "Agent/Communication/Windows/BlobHandlers.h"
#include "Agent/Communication/Windows/BridgeProcess.h"
#include "Agent/Communication/Windows/Registration.h"
#include "Agent/HotReload/Windows/Watchdog.h"
#include "Agent/Preferences/Windows/AgentGlobalPreferences.h"
#include "Agent/Preferences/Windows/AgentProjectPreferences.h"
#include "Agent/Preferences/Windows/PreferencesSection.h"
#include "Agent/Transport/Windows/ConnectionState.h"
#include "Agent/Transport/Windows/Heartbeat.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/Thread.h"

#include <utility>

namespace Torvane::ReceiverInitialization
{
namespace
{
enum InitializationResult : uint32_t
{
    Initialized = 0,
    BridgeNotSpawned = 10,
    PipeNotConnected = 11,
    ExecutableNotOpened = 12,
};

Event finished = {INVALID_HANDLE_VALUE};
HANDLE thread = INVALID_HANDLE_VALUE;

/// \return in milliseconds; a negative number counts as 0.
uint32_t ReadConnectionTimeout(const FixedWideString& brokerFolder)
{
    IntPreference timeout = MakeGlobalPreferences();
    LoadAllGlobalPreferences(timeout, brokerFolder);
    return timeout.value < 0 ? 0 : static_cast<uint32_t>(timeout.value);
}

/// The second pipe is waited for even if the first has failed.
bool WaitForBridge(uint32_t milliseconds)
{
    LogInfo(0, TVN_HERE, "Waiting for bridge to connect to pipes, timeout %ums", milliseconds);
    const Result<bool> sender = Sender::WaitForBridge(milliseconds);
    if (sender.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to wait for sender pipe");
    }
    const Result<bool> receiver = Receiver::WaitForBridge(milliseconds);
    if (receiver.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to wait for receiver pipe");
    }
    return sender.error == nullptr && receiver.error == nullptr;
}

InitializationResult Initialize(const FixedWideString& identifier, uint32_t agentType,
                                StringPreference& directoryToBroker)
{
    const BlobHeader& projectPreferences = Sender::GetProjectPreferences();
    PreferencesSection::Publish(projectPreferences);
    if (!SpawnBridge(identifier))
    {
        return BridgeNotSpawned;
    }
    ReadProjectPreferences(directoryToBroker,
                           *reinterpret_cast<const ProjectPreferencesRecord*>(&projectPreferences + 1));
    const FixedWideString brokerFolder = MakeBrokerFolder(directoryToBroker, GetLibraryFolder());
    if (!WaitForBridge(ReadConnectionTimeout(brokerFolder)))
    {
        return PipeNotConnected;
    }
    LogSuccess(TVN_HERE, "Pipes connected");
    LogInfo(0, TVN_HERE, "Registering agent with bridge");
    Sender::SetAgent(BuildRegisterAgent(agentType));
    LogInfo(0, TVN_HERE, "Registering process with bridge");
    const AgentThreadIds threads = {Sender::GetThreadId(), GetCurrentThreadId(), Heartbeat::GetThreadId(),
                                    Watchdog::GetThreadId()};
    OwnedBlob process = BuildRegisterProcess(threads);
    if (process.Get().pointer == nullptr)
    {
        return ExecutableNotOpened;
    }
    Sender::Connect(std::move(process));
    return Initialized;
}

struct ReceiverBlock
{
    const char* name;
    FixedWideString identifier;
    uint32_t agentType;
};
static_assert(sizeof(ReceiverBlock) == 2060);

uint32_t Run(ReceiverBlock& block)
{
    StringPreference directoryToBroker = MakeProjectPreferences();
    uint32_t result = Initialize(block.identifier, block.agentType, directoryToBroker);
    if (result == Initialized)
    {
        finished.Signal();
        LogSuccess(TVN_HERE, "Initialization done");
        result = Receiver::Run(HandleBlob);
    }
    else
    {
        FailConnection();
    }
    return result;
}
} // namespace

void CreateFinishedEvent()
{
    finished.handle = Expect(Event::Create("Startup finished"), "Cannot create event for startup");
}

void DestroyFinishedEvent()
{
    finished.Destroy();
}

void FailConnection()
{
    Receiver::GetLatches().ReleaseAll();
    finished.Signal();
    ReportConnectionStatus(ConnectionFailed);
}

bool WaitUntilFinished()
{
    return finished.Wait();
}

void StartThread(const FixedWideString& identifier, uint32_t agentType)
{
    thread = Torvane::StartThread<ReceiverBlock, Run>(receiverThread.stackSize,
                                                      {receiverThread.name, identifier, agentType});
    if (thread == nullptr)
    {
        FailConnection();
    }
}

void CancelThreadIO()
{
    CancelSynchronousIo(thread);
}

void WaitForThreadEnd()
{
    WaitForThread(thread);
}
} // namespace Torvane::ReceiverInitialization
