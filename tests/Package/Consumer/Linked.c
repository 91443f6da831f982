/* A host in C that is linked to the Agent's import library. */

#include <Torvane/Agent.h>

#include <stdio.h>
#include <windows.h>

static void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status)
{
    printf("status %d\n", (int)status);
    SetEvent((HANDLE)context);
}

int main(void)
{
    static TvnDefaultAgent agent;
    HANDLE known = CreateEventW(NULL, TRUE, FALSE, NULL);
    if (!TvnCheckVersion(TVN_VERSION))
    {
        return 1;
    }
    printf("version %s\n", TvnGetVersion());
    TvnStartupDefaultAgent(&agent, NULL, NULL, NULL);
    agent.TvnOnConnection(known, TakeStatus);
    if (WaitForSingleObject(known, 60000) != WAIT_OBJECT_0)
    {
        printf("no connection status\n");
        return 1;
    }
    TvnShutdown();
    printf("done\n");
    return 0;
}
