#include "Agent/HotReload/Windows/HotReload.h"

#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/Logger.h"
#include "Torvane/Agent.h"

#include <windows.h>

namespace Torvane
{
namespace
{
Event shouldCompileAndReload = {INVALID_HANDLE_VALUE};
Event hotReload = {INVALID_HANDLE_VALUE};
Event hotReloadLoadPatch = {INVALID_HANDLE_VALUE};
Event hotReloadLoadPatchReceived = {INVALID_HANDLE_VALUE};
Event hotReloadWaitForPatchLoad = {INVALID_HANDLE_VALUE};
Event hotReloadFinished = {INVALID_HANDLE_VALUE};
uint32_t hotReloadAgentType = DefaultAgent;

struct EventRow
{
    Event* event;
    const char* name;
};

/// In the order in which they are created and closed.
constexpr EventRow eventRows[] = {
    {&shouldCompileAndReload, "ShouldCompileAndReload"},
    {&hotReload, "HotReload"},
    {&hotReloadLoadPatch, "HotReload load patch"},
    {&hotReloadLoadPatchReceived, "HotReload load patch received"},
    {&hotReloadWaitForPatchLoad, "HotReload wait for patch load"},
    {&hotReloadFinished, "HotReload finished"},
};

/// Accepts the request that `hotReload` signals, and clears what an earlier reload has left.
void AcceptRequest()
{
    hotReload.Reset();
    hotReloadLoadPatch.Reset();
    hotReloadLoadPatchReceived.Reset();
    hotReloadFinished.Reset();
    shouldCompileAndReload.Signal();
}

void PushReload()
{
    RecordBuilder<ReloadBlob> builder;
    builder.Fixed().processId = GetCurrentProcessId();
    PushBlob(builder.Finish());
}

bool WantsReloadBeforeCompile()
{
    if (!hotReload.TryWait())
    {
        return false;
    }
    AcceptRequest();
    return true;
}

bool WantsReloadBeforeLoad()
{
    if (hotReload.TryWait())
    {
        AcceptRequest();
        TvnReload(NoWait);
        shouldCompileAndReload.Reset();
        hotReloadWaitForPatchLoad.Signal();
    }
    return hotReloadLoadPatch.TryWait();
}

void WaitForEvent(Event& event)
{
    if (!event.Wait())
    {
        LogError(TVN_HERE, "Could not wait for event during hot-reload");
    }
}
} // namespace

void StartupHotReload(uint32_t agentType)
{
    LogDebug(TVN_HERE, "Initializing hot-reload system");
    for (const EventRow& row : eventRows)
    {
        row.event->handle = Expect(Event::Create(row.name), "Cannot create hot-reload event");
    }
    hotReloadAgentType = agentType;
}

void ShutdownHotReload()
{
    LogDebug(TVN_HERE, "Shutting down hot-reload system");
    for (const EventRow& row : eventRows)
    {
        row.event->Destroy();
    }
}

void RequestReload()
{
    if (hotReloadAgentType == SynchronizedAgent)
    {
        hotReload.Signal();
    }
    else
    {
        TvnReload(NoWait);
    }
}

void FinishReload()
{
    if (hotReloadAgentType == SynchronizedAgent)
    {
        hotReloadFinished.Signal();
    }
}

void WaitForHostToAcceptPatch()
{
    if (hotReloadAgentType != SynchronizedAgent || !hotReloadWaitForPatchLoad.TryWait())
    {
        return;
    }
    hotReloadWaitForPatchLoad.Reset();
    hotReloadLoadPatch.Signal();
    WaitForEvent(hotReloadLoadPatchReceived);
    hotReloadLoadPatchReceived.Reset();
}
} // namespace Torvane

extern "C" void TVN_CALL TvnScheduleReload(void)
{
    using namespace Torvane;
    LogDebug(TVN_HERE, "API TvnScheduleReload");
    PushBlob(BuildUnwrittenBlob(BlobType::ScheduleReload));
}

extern "C" bool TVN_CALL TvnWantsReload(TvnReloadSync sync)
{
    using namespace Torvane;
    switch (sync)
    {
    case SyncBeforeCompile:
        return WantsReloadBeforeCompile();
    case SyncBeforeLoad:
        return WantsReloadBeforeLoad();
    default:
        return false;
    }
}

extern "C" void TVN_CALL TvnReload(TvnReloadWait wait)
{
    using namespace Torvane;
    LogDebug(TVN_HERE, "API TvnReload");
    bool send = true;
    if (hotReloadAgentType == SynchronizedAgent)
    {
        if (hotReloadLoadPatch.TryWait())
        {
            hotReloadLoadPatch.Reset();
            hotReloadLoadPatchReceived.Signal();
        }
        send = shouldCompileAndReload.TryWait();
    }
    if (send)
    {
        PushReload();
    }
    if (wait == WaitUntilFinished)
    {
        WaitForEvent(hotReloadFinished);
    }
}
