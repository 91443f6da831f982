#pragma once

/// \file
/// The moment of a reload: six events and their order, by which host and receiver thread agree; the exported
/// functions TvnWantsReload, TvnScheduleReload and TvnReload.
///
/// The state of a reload is which events are signalled. There is no lock: the order of resets and signals in each
/// function is the whole synchronisation.

#include <stdint.h>

namespace Torvane
{
/// Creates the events and stores the type. Host's thread, at startup.
void StartupHotReload(uint32_t agentType);

/// Closes the events in the order of their creation. Host's thread, at shutdown.
void ShutdownHotReload();

/// The Bridge asks for a reload. Receiver thread. The default agent answers at once.
void RequestReload();

/// The Bridge has finished the reload. Receiver thread.
void FinishReload();

/// Waits, without a limit, until a host thread accepts the patch in `TvnReload`, if one has asked for that.
/// Receiver thread; a failed wait logs an Error line, and the load continues.
void WaitForHostToAcceptPatch();
} // namespace Torvane
