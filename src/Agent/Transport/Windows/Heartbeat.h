#pragma once

/// \file
/// The heartbeat thread: shows from outside that the process lives.

#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/FixedString.h"

namespace Torvane
{
/// Ends the heartbeat thread. Manual-reset.
extern Event heartbeatExit;

/// Body of the heartbeat thread: writes the time (`FILETIME`, UTC) at offset 0 of the section "TVN_Memory_" with
/// the identifier behind it, under the mutex "TVN_Mutex_" with the same, every 10 milliseconds until
/// `heartbeatExit` is signalled.
void RunHeartbeat(const FixedWideString& identifier);
} // namespace Torvane
