/** \file
 * A host in C: it starts a default agent, enables reloads of itself, requests one, and ends. */

/* [twenty lines] */
#include <Torvane/Load.h>

static TvnHost agent;

static bool StartAgent(void)
{
    if (!TvnHostLoad(&agent, NULL) || !TvnHostStartDefaultAgent(&agent, NULL, NULL, NULL))
    {
        return false; /* the program continues without reloads */
    }
    wchar_t path[1024];
    GetModuleFileNameW(NULL, path, 1024);
    TvnHostEnableModule(&agent, path, ExactlyTheseModules, NULL, NULL); /* waits for the Bridge */
    return true;
}
/* [end] */

#include <stdio.h>

/* [get the connection's status] */
static void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status)
{
    *(volatile LONG*)context = (LONG)status; /* no more than that: a lock is owned */
}
/* [end] */

int main(void)
{
    static volatile LONG status = -1; /* exists as long as the callback can come */
    if (!StartAgent())
    {
        wprintf(L"!! %ls\n", agent.reason);
        return 1;
    }
    TvnHostOnConnection(&agent, (void*)&status, TakeStatus);
    const bool connected = TvnHostWaitForConnection(&agent, 10000);
    printf("host  connection status %d\n", (int)status);
    if (connected)
    {
        TvnHostLogMessage(&agent, L"a message for the Broker's log");
        TvnHostScheduleReload(&agent);
    }
    TvnHostShutdown(&agent);
    printf("host  ended\n");
    return connected ? 0 : 1;
}
