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
/// The two ways in which reloads and restarts reach the host.
enum AgentType : uint32_t
{
    DefaultAgent = 0,      ///< the Agent's own threads do all the work
    SynchronizedAgent = 1, ///< they only raise events; a host thread polls and carries out
};

/// Creates the events and stores the type. Host's thread, at startup.
void StartupHotReload(uint32_t agentType);

/// Closes the events in the order of their creation. Host's thread, at shutdown.
void ShutdownHotReload();

/// The Bridge asks for a reload. Receiver thread. The default agent answers at once.
void RequestReload();

/// The Bridge has finished the reload. Receiver thread.
void FinishReload();

/// Waits, without a limit, until a host thread has let the patch in, if one has said that it wants to be asked.
/// Receiver thread; logs an Error line if the wait fails, and goes on.
void HandOverPatch();
} // namespace Torvane
