#pragma once

/// \file
/// Brings a patch image into the process; receiver thread only.

#include "Agent/Protocol/Blob.h"
#include "Shared/Concurrency/Windows/Event.h"

namespace Torvane
{
/// What the watchdog thread and a guarded load tell each other. Manual-reset events.
struct WatchdogEvents
{
    Event enter = {INVALID_HANDLE_VALUE}; ///< a guarded load begins, or shutdown
    Event exit = {INVALID_HANDLE_VALUE};  ///< the thread is to end
    Event watch = {INVALID_HANDLE_VALUE}; ///< the guarded load has ended, or shutdown
};
extern WatchdogEvents watchdogEvents;

/// Releases the address space that the Bridge has reserved, hands the moment over to a host thread where that was
/// agreed, loads the image, prepares its sections and answers `PatchLoaded`.
///
/// If the image can't be loaded, that is logged, sent to the Bridge as a `LogNarrow` Blob (no `PatchLoaded` goes
/// out), and the address space is reserved again.
void LoadPatch(const LoadPatchWindowsBlob& blob);
} // namespace Torvane
