#include <Torvane/Agent.h>

#include <stddef.h>

typedef char TableOfDefaultAgentHas20Members[sizeof(TvnDefaultAgent) == 20 * sizeof(void*) ? 1 : -1];
typedef char
    TableOfSynchronizedAgentHas24Members[sizeof(TvnSynchronizedAgent) == 24 * sizeof(void*) ? 1 : -1];
typedef char LogFilterIsOneWord[sizeof(TvnLogFilter) == 4 ? 1 : -1];
typedef char StatusIs32Bit[sizeof(TvnConnectionStatus) == 4 ? 1 : -1];

/* Hosts are 32-bit. */
#define LAYOUT_APPLIES (sizeof(void*) == 4)
typedef char
    PreferencesHaveTheWireLayout[!LAYOUT_APPLIES || offsetof(TvnProjectPreferences, flag6C) == 0x6C ? 1 : -1];
typedef char PreferencesHaveTheWireSize[!LAYOUT_APPLIES || sizeof(TvnProjectPreferences) == 0x70 ? 1 : -1];

void UseHeader(TvnDefaultAgent* agent);

void UseHeader(TvnDefaultAgent* agent)
{
    TvnStartupDefaultAgent(agent, NULL, NULL, NULL);
    agent->TvnEnableModule(L"host.exe", IncludeImports, NULL, NULL);
    TvnShutdown();
}
