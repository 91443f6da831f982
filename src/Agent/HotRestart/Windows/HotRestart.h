#pragma once

/// \file
/// The moment of a restart and the end of the process: one event and the stored agent type; the exported functions
/// TvnWantsRestart, TvnScheduleRestart and TvnRestart.
///
/// The event is the whole state between the Broker's request and the host's reaction. There is no lock.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// Creates the event and stores the type. Host's thread, at startup.
void StartupHotRestart(uint32_t agentType);

/// Closes the event. Host's thread, at shutdown.
void ShutdownHotRestart();

/// The Broker asks for a restart. Receiver thread. The default agent restarts on a thread of its own, which waits for a
/// Blob that the receiver thread must be free to handle; the synchronized agent leaves it to the host.
void RequestRestart();

/// Lets the `TvnRestart` that sent the Blob's event end the process. Receiver thread; the handle is used as it comes.
void AllowRestart(const ExitProcessForHotRestartBlob& blob);
} // namespace Torvane
