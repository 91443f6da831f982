#pragma once

/// \file
/// The library under test, loaded as a host loads it; one object per process.

#include "Agent/Protocol/Names.h"
#include "Torvane/Agent.h"
#include "tests/Support/Modules.h"

namespace Torvane::Testing
{
/// All 30 exports, by their names.
#define TORVANE_AGENT_EXPORTS(X)                                \
    X(TvnCheckVersion)                                          \
    X(TvnGetVersion)                                            \
    X(TvnStartupDefaultAgent)                                   \
    X(TvnStartupDefaultAgentANSI)                               \
    X(TvnStartupSynchronizedAgent)                              \
    X(TvnStartupSynchronizedAgentANSI)                          \
    X(TvnShutdown)                                              \
    X(TvnOnConnection)                                          \
    X(TvnLogMessage)                                            \
    X(TvnLogMessageANSI)                                        \
    X(TvnSetBoolPreferences)                                    \
    X(TvnSetIntPreferences)                                     \
    X(TvnSetStringPreferences)                                  \
    X(TvnSetShortcutPreferences)                                \
    X(TvnEnableModule)                                          \
    X(TvnEnableModuleANSI)                                      \
    X(TvnEnableModules)                                         \
    X(TvnEnableModulesANSI)                                     \
    X(TvnDisableModule)                                         \
    X(TvnDisableModuleANSI)                                     \
    X(TvnDisableModules)                                        \
    X(TvnDisableModulesANSI)                                    \
    X(TvnEnableAutomaticHandlingOfDynamicallyLoadedModules)     \
    X(TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI) \
    X(TvnWantsReload)                                           \
    X(TvnScheduleReload)                                        \
    X(TvnReload)                                                \
    X(TvnWantsRestart)                                          \
    X(TvnScheduleRestart)                                       \
    X(TvnRestart)

/// `LoadLibraryW` and `GetProcAddress`.
class AgentLibrary
{
public:
#define TORVANE_MEMBER(Name) decltype(&::Name) Name = nullptr;
    TORVANE_AGENT_EXPORTS(TORVANE_MEMBER)
#undef TORVANE_MEMBER

    /// Loads a file and resolves all exports. Empty on success, or what was missing.
    std::string Load(const std::wstring& path);

    /// The module handle; null before `Load`.
    void* Module() const
    {
        return module;
    }

    /// `FreeLibrary`.
    void Unload();

private:
    void* module = nullptr;
};

/// Folder of this process's executable, without a separator at the end.
std::wstring ExecutableFolder();

/// Where the build puts the Agent and the Bridge for these tests.
std::wstring AgentFolder();

/// The full path of an image of `tests/Integration/Images`, by its name without extension.
std::wstring ImagePath(const std::wstring& name);

/// Copies the Agent, and with it the Bridge if `withBridge` is set, into a new folder of this process, where
/// nothing else is. No preferences of any Broker are found from there. \return the folder; empty on failure.
std::wstring CopyAgentFolder(bool withBridge);

extern const wchar_t agentFileName[];
} // namespace Torvane::Testing
