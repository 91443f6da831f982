#include <Torvane/Agent.h>

#include <stddef.h>

static_assert(sizeof(TvnDefaultAgent) == 20 * sizeof(void*), "20 members");
static_assert(sizeof(TvnSynchronizedAgent) == 24 * sizeof(void*), "24 members");
static_assert(offsetof(TvnSynchronizedAgent, TvnWantsReload) == 14 * sizeof(void*), "member 15");
static_assert(offsetof(TvnDefaultAgent, TvnScheduleReload) == 14 * sizeof(void*), "member 15");

void UseHeader(TvnSynchronizedAgent& agent);

void UseHeader(TvnSynchronizedAgent& agent)
{
    TvnStartupSynchronizedAgent(&agent, nullptr, nullptr, nullptr);
    if (agent.TvnWantsReload(SyncBeforeLoad))
    {
        agent.TvnReload(WaitUntilFinished);
    }
    TvnShutdown();
}
