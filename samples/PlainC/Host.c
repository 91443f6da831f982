/** \file
 * A host in C: it starts a default agent, enables reloads of itself, requests one, and ends. */

/* [twenty lines] */
#include <Torvane/Agent.h>
#include <windows.h>

static TvnDefaultAgent agent;
static HMODULE library; /* null: there is no Agent, and none of its functions is called */

static bool StartAgent(void)
{
    library = LoadLibraryW(L"TVN_Agent_x86.dll");
    bool(TVN_CALL * checkVersion)(const char*) = (void*)GetProcAddress(library, "TvnCheckVersion");
    if (checkVersion == NULL || !checkVersion(TVN_VERSION))
    {
        return false;
    }
    void(TVN_CALL * startup)(TvnDefaultAgent*, const TvnLogFilter*, const wchar_t*,
                             const TvnProjectPreferences*) =
        (void*)GetProcAddress(library, "TvnStartupDefaultAgent");
    startup(&agent, NULL, NULL, NULL);
    wchar_t path[1024];
    GetModuleFileNameW(NULL, path, 1024);
    agent.TvnEnableModule(path, ExactlyTheseModules, NULL, NULL); /* waits for the Bridge */
    return true;
}
/* [end] */

#include <stdio.h>

/* [wait for the connection] */
struct Connection
{
    HANDLE known;
    TvnConnectionStatus status;
};

static void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status)
{
    struct Connection* connection = context;
    connection->status = status;
    SetEvent(connection->known);
}

static TvnConnectionStatus WaitForConnection(void)
{
    static struct Connection connection; /* outlives this call, as the callback may */
    connection.known = CreateEventW(NULL, TRUE, FALSE, NULL);
    agent.TvnOnConnection(&connection, TakeStatus);
    WaitForSingleObject(connection.known, INFINITE);
    return connection.status;
}
/* [end] */

int main(void)
{
    if (!StartAgent())
    {
        printf("!! TVN_Agent_x86.dll is missing or has another version\n");
        return 1;
    }
    const TvnConnectionStatus status = WaitForConnection();
    printf("host  connection status %d\n", (int)status);
    if (status == ConnectionSucceeded)
    {
        agent.TvnLogMessage(L"a message for the Broker's log");
        agent.TvnScheduleReload();
    }
    void(TVN_CALL * shutdown)(void) = (void*)GetProcAddress(library, "TvnShutdown");
    shutdown();
    printf("host  ended\n");
    return status == ConnectionSucceeded ? 0 : 1;
}
