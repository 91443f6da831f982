#include "Agent/HotReload/Windows/Watchdog.h"

#include "Agent/HotReload/Windows/PatchLoading.h"
#include "Agent/Protocol/BlobBuilder.h"
#include "Agent/Transport/Windows/Sender.h"
#include "Shared/Foundation/Logger.h"

namespace Torvane
{
namespace
{
constexpr uint32_t loadLimitMilliseconds = 500;

/// \return false if the end of the load couldn't be waited for.
bool LetHeldThreadsRunUntilLoaded()
{
    LogDebug(TVN_HERE, "Possible hang detected while loading patch code, resuming held threads");
    PushBlob(BuildUnwrittenBlob(BlobType::ResumeHeldThreads));
    LogDebug(TVN_HERE, "Waiting for loading to finish");
    if (!watchdogEvents.watch.Wait())
    {
        return false;
    }
    LogDebug(TVN_HERE, "Suspending held threads");
    PushBlob(BuildUnwrittenBlob(BlobType::SuspendHeldThreads));
    return true;
}
} // namespace

uint32_t RunWatchdog()
{
    LogDebug(TVN_HERE, "Running watchdog thread");
    while (!watchdogEvents.exit.Wait(0))
    {
        if (!watchdogEvents.enter.Wait())
        {
            break;
        }
        watchdogEvents.enter.Reset();
        if (!watchdogEvents.watch.Wait(loadLimitMilliseconds) && !LetHeldThreadsRunUntilLoaded())
        {
            break;
        }
        watchdogEvents.watch.Reset();
    }
    LogDebug(TVN_HERE, "Exiting watchdog thread");
    return 0;
}
} // namespace Torvane
