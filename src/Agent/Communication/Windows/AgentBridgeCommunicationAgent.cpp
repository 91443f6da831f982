#include "Agent/Communication/Windows/AgentBridgeCommunicationAgent.h"

#include "Agent/Communication/Windows/BridgeProcess.h"
#include "Agent/Communication/Windows/ReceiverInitialization.h"
#include "Agent/Communication/Windows/Registration.h"
#include "Agent/HotReload/Windows/Watchdog.h"
#include "Agent/Preferences/Windows/PreferencesSection.h"
#include "Agent/Transport/Windows/Heartbeat.h"
#include "Agent/Transport/Windows/Receiver.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"

namespace Torvane::AgentBridgeCommunicationAgent
{
namespace
{
bool linkCreated = false; ///< both pipes, and with them the threads

/// Ends the threads, each before what it uses.
void EndThreads()
{
    Sender::CancelThreadIO();
    ReceiverInitialization::CancelThreadIO();
    Receiver::DisconnectPipe();
    Sender::DisconnectPipe();
    ReceiverInitialization::WaitForThreadEnd();
    Sender::EndThread();
    Watchdog::EndThread();
    Heartbeat::EndThread();
}
} // namespace

bool Startup(const FixedWideString& identifier, uint32_t agentType, const wchar_t* projectPreferencesFile,
             const TvnProjectPreferences* projectPreferences)
{
    LogInfo(0, TVN_HERE, "Starting agent-bridge communication using identifier %ls and agent type %u",
            identifier.text, agentType);
    ReceiverInitialization::CreateFinishedEvent();
    Sender::CreateQueue();
    Receiver::GetLatches().Create();
    PreferencesSection::Open(identifier);

    LogDebug(TVN_HERE, "Creating communication pipes");
    if (!Sender::CreatePipe(identifier) || !Receiver::CreatePipe(identifier))
    {
        ReceiverInitialization::FailConnection();
        return false;
    }
    linkCreated = true;

    LogDebug(TVN_HERE, "Creating synchronization events");
    Heartbeat::CreateExitEvent();
    Watchdog::CreateEvents();
    Sender::CreateConnectedEvent();

    LogDebug(TVN_HERE, "Creating heartbeat thread");
    Heartbeat::StartThread(identifier);
    LogDebug(TVN_HERE, "Creating watchdog thread");
    Watchdog::StartThread();
    LogDebug(TVN_HERE, "Creating sender thread");
    Sender::StartThread();

    Sender::SetProjectPreferences(
        BuildRegisterProjectPreferences(projectPreferencesFile, projectPreferences));

    LogDebug(TVN_HERE, "Creating receiver thread");
    ReceiverInitialization::StartThread(identifier, agentType);
    return true;
}

void Shutdown()
{
    LogDebug(TVN_HERE, "Shutting down agent-bridge communication");
    if (!ReceiverInitialization::WaitUntilFinished())
    {
        LogError(TVN_HERE, "Failed to wait for Startup() to complete");
        return;
    }
    if (linkCreated)
    {
        EndThreads();
    }
    Receiver::ClosePipe();
    Sender::ClosePipe();
    ReleaseBridge();
    Sender::DestroyQueue();
    ReceiverInitialization::DestroyFinishedEvent();
    Receiver::GetLatches().Destroy();
    PreferencesSection::Close();
}
} // namespace Torvane::AgentBridgeCommunicationAgent
