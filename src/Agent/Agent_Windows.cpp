#include "Agent/Communication/Windows/AgentBridgeCommunicationAgent.h"
#include "Agent/Exception/InstructionDecoder.h"
#include "Agent/Exception/Windows/ExceptionHandler.h"
#include "Agent/HotReload/Windows/HotReload.h"
#include "Agent/HotRestart/Windows/HotRestart.h"
#include "Agent/Modules/Windows/AutomaticModuleHandling.h"
#include "Agent/Protocol/Blob.h"
#include "Agent/Protocol/Names.h"
#include "Agent/Transport/Windows/ConnectionState.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/Clock.h"
#include "Shared/Foundation/Windows/Log.h"
#include "Shared/Memory/MemorySystem.h"
#include "Shared/Memory/Windows/MemoryDefaultAllocators.h"
#include "Shared/OS/Windows/WindowsInternalAPI.h"
#include "Shared/System/Windows/System.h"
#include "Torvane/Agent.h"

#include <string.h>
#include <windows.h>

namespace Torvane
{
namespace
{
constexpr uint32_t allDebugOutputLevels = 255;

static_assert(__builtin_strcmp(TVN_VERSION, apiVersion) == 0, "Agent.h and Names.h have different versions.");

void StartupAgentLog()
{
    FixedWideString fileName = {};
    fileName.Format(L"log_windows_agent_%u.txt", GetCurrentProcessId());
    const Result<HANDLE> file = CreateFileForWriting(GetLogFilePath(fileName.text).text);
    StartupLog(file.error == nullptr ? file.payload : INVALID_HANDLE_VALUE);
    LogDebug(TVN_HERE, "Torvane version " TVN_VERSION);
}

FixedWideString GetIdentifier()
{
    FixedWideString identifier = {};
    identifier.Format(L"%u", GetCurrentProcessId());
    return identifier;
}

void ShowConnectionFailure()
{
    MessageBoxA(nullptr,
                "Failed to initialize communication between Agent and Bridge, forcing the Agent to exit. "
                "Please check the log for details.",
                "Torvane Agent", MB_OK);
}

/// Starts everything, in this order: each step may use what is above it and nothing below.
void StartupAgent(uint32_t agentType, const TvnLogFilter* logFilter, const wchar_t* projectPreferencesPath,
                  const TvnProjectPreferences* projectPreferences)
{
    NullLogger nullLogger;
    SetCurrentLogger(&nullLogger);
    SetLogChannel("(WIN) ");
    SetTimeOrigin();

    StartupMemorySystem();

    SetDebugOutputLevelMask(logFilter != nullptr ? logFilter->debugOutputLevels : allDebugOutputLevels);
    StartupAgentLog();

    LogDebug(TVN_HERE, "Initializing OS internal functions");
    StartupWindowsInternalAPI();

    LogDebug(TVN_HERE, "Initializing system");
    StartupSystem();

    StartupHotReload(agentType);
    StartupHotRestart(agentType);
    StartupInstructionDecoder();

    InitializeConnectionState();

    if (!AgentBridgeCommunicationAgent::Startup(GetIdentifier(), agentType, projectPreferencesPath,
                                                projectPreferences))
    {
        ShowConnectionFailure();
    }
}

/// The members that both tables have under the same names.
template<typename Table>
void FillCommonMembers(Table& table)
{
    table.TvnOnConnection = TvnOnConnection;
    table.TvnLogMessageANSI = TvnLogMessageANSI;
    table.TvnLogMessage = TvnLogMessage;
    table.TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI =
        TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI;
    table.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules =
        TvnEnableAutomaticHandlingOfDynamicallyLoadedModules;
    table.TvnEnableModuleANSI = TvnEnableModuleANSI;
    table.TvnEnableModule = TvnEnableModule;
    table.TvnEnableModulesANSI = TvnEnableModulesANSI;
    table.TvnEnableModules = TvnEnableModules;
    table.TvnDisableModuleANSI = TvnDisableModuleANSI;
    table.TvnDisableModule = TvnDisableModule;
    table.TvnDisableModulesANSI = TvnDisableModulesANSI;
    table.TvnDisableModules = TvnDisableModules;
    table.TvnScheduleReload = TvnScheduleReload;
    table.TvnScheduleRestart = TvnScheduleRestart;
    table.TvnSetBoolPreferences = TvnSetBoolPreferences;
    table.TvnSetIntPreferences = TvnSetIntPreferences;
    table.TvnSetStringPreferences = TvnSetStringPreferences;
    table.TvnSetShortcutPreferences = TvnSetShortcutPreferences;
}
} // namespace
} // namespace Torvane

using namespace Torvane;

extern "C" bool TVN_CALL TvnCheckVersion(const char* version)
{
    return strcmp(version, apiVersion) == 0;
}

extern "C" const char* TVN_CALL TvnGetVersion(void)
{
    return apiVersion;
}

extern "C" void TVN_CALL TvnStartupDefaultAgent(TvnDefaultAgent* agent, const TvnLogFilter* logFilter,
                                                const wchar_t* projectPreferencesPath,
                                                const TvnProjectPreferences* projectPreferences)
{
    FillCommonMembers(*agent);
    StartupAgent(DefaultAgent, logFilter, projectPreferencesPath, projectPreferences);
}

extern "C" void TVN_CALL TvnStartupDefaultAgentANSI(TvnDefaultAgent* agent, const TvnLogFilter* logFilter,
                                                    const char* projectPreferencesPath,
                                                    const TvnProjectPreferences* projectPreferences)
{
    if (projectPreferencesPath == nullptr)
    {
        TvnStartupDefaultAgent(agent, logFilter, nullptr, projectPreferences);
        return;
    }
    TvnStartupDefaultAgent(agent, logFilter, WidenPath(projectPreferencesPath).text, projectPreferences);
}

extern "C" void TVN_CALL TvnStartupSynchronizedAgent(TvnSynchronizedAgent* agent,
                                                     const TvnLogFilter* logFilter,
                                                     const wchar_t* projectPreferencesPath,
                                                     const TvnProjectPreferences* projectPreferences)
{
    FillCommonMembers(*agent);
    agent->TvnWantsReload = TvnWantsReload;
    agent->TvnReload = TvnReload;
    agent->TvnWantsRestart = TvnWantsRestart;
    agent->TvnRestart = TvnRestart;
    StartupAgent(SynchronizedAgent, logFilter, projectPreferencesPath, projectPreferences);
}

extern "C" void TVN_CALL TvnStartupSynchronizedAgentANSI(TvnSynchronizedAgent* agent,
                                                         const TvnLogFilter* logFilter,
                                                         const char* projectPreferencesPath,
                                                         const TvnProjectPreferences* projectPreferences)
{
    if (projectPreferencesPath == nullptr)
    {
        TvnStartupSynchronizedAgent(agent, logFilter, nullptr, projectPreferences);
        return;
    }
    TvnStartupSynchronizedAgent(agent, logFilter, WidenPath(projectPreferencesPath).text, projectPreferences);
}

extern "C" void TVN_CALL TvnShutdown(void)
{
    LogDebug(TVN_HERE, "API TvnShutdown");
    RemoveExceptionHandler();
    ShutdownAutomaticModuleHandling();
    AgentBridgeCommunicationAgent::Shutdown();
    DeleteConnectionState();
    ShutdownHotRestart();
    ShutdownHotReload();
    LogDebug(TVN_HERE, "Shutting down system");
    LogDebug(TVN_HERE, "Shutting down OS internal functions");
    ShutdownMemorySystem();
    ShutdownLog();
}
