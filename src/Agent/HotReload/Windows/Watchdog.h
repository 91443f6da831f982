#pragma once

/// \file
/// The watchdog thread: guards a patch load while the Bridge holds the host's threads.

#include <stdint.h>

namespace Torvane
{
/// Body of the watchdog thread, which `watchdogEvents` drive. A guarded load that takes longer than 500
/// milliseconds sends `ResumeHeldThreads`, and `SuspendHeldThreads` when it has ended. \return 0
uint32_t RunWatchdog();
} // namespace Torvane
