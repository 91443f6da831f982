#include "Agent/HotReload/Windows/Watchdog.h"

#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/Thread.h"

namespace Torvane::Watchdog
{
namespace
{
constexpr uint32_t loadLimitMilliseconds = 500;

Event enterEvent = {INVALID_HANDLE_VALUE}; ///< a guarded load begins, or shutdown
Event exitEvent = {INVALID_HANDLE_VALUE};  ///< the thread is to end
Event watchEvent = {INVALID_HANDLE_VALUE}; ///< the guarded load has ended, or shutdown
HANDLE thread = INVALID_HANDLE_VALUE;

/// \return false if the end of the load couldn't be waited for.
bool ResumeHeldThreadsUntilLoaded()
{
    LogDebug(TVN_HERE, "Possible hang detected while loading patch code, resuming held threads");
    PushBlob(BuildUnwrittenBlob(BlobType::ResumeHeldThreads));
    LogDebug(TVN_HERE, "Waiting for loading to finish");
    if (!watchEvent.Wait())
    {
        return false;
    }
    LogDebug(TVN_HERE, "Suspending held threads");
    PushBlob(BuildUnwrittenBlob(BlobType::SuspendHeldThreads));
    return true;
}

struct WatchdogBlock
{
    const char* name;
    uint32_t unused; ///< a thread's block is at least 8 bytes
};
static_assert(sizeof(WatchdogBlock) == 8);

uint32_t Run(WatchdogBlock&)
{
    LogDebug(TVN_HERE, "Running watchdog thread");
    while (!exitEvent.Wait(0))
    {
        if (!enterEvent.Wait() || exitEvent.Wait(0)) // shutdown signals both, which a poll before can miss
        {
            break;
        }
        enterEvent.Reset();
        if (!watchEvent.Wait(loadLimitMilliseconds) && !ResumeHeldThreadsUntilLoaded())
        {
            break;
        }
        watchEvent.Reset();
    }
    LogDebug(TVN_HERE, "Exiting watchdog thread");
    return 0;
}
} // namespace

void CreateEvents()
{
    enterEvent.handle =
        Expect(Event::Create("Watchdog thread enter"), "Cannot create event for watchdog enter");
    exitEvent.handle = Expect(Event::Create("Watchdog thread exit"), "Cannot create event for watchdog exit");
    watchEvent.handle = Expect(Event::Create("Watchdog watch"), "Cannot create event for watchdog watch");
}

void StartThread()
{
    thread = Torvane::StartThread<WatchdogBlock, Run>(watchdogThread.stackSize, {watchdogThread.name, 0});
}

void EndThread()
{
    watchEvent.Signal();
    exitEvent.Signal();
    enterEvent.Signal();
    WaitForThread(thread);
    watchEvent.Destroy();
    exitEvent.Destroy();
    enterEvent.Destroy();
}

uint32_t GetThreadId()
{
    return ::GetThreadId(thread);
}

ScopedWatch::ScopedWatch(bool guarded)
    : guarded(guarded)
{
    if (guarded)
    {
        LogDebug(TVN_HERE, "Enabling watchdog thread");
        enterEvent.Signal();
    }
}

ScopedWatch::~ScopedWatch()
{
    if (guarded)
    {
        LogDebug(TVN_HERE, "Disabling watchdog thread");
        watchEvent.Signal();
    }
}
} // namespace Torvane::Watchdog
