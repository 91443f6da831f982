#pragma once

/// \file
/// The moment of a restart: one event and the stored agent type; the exported functions TvnWantsRestart,
/// TvnScheduleRestart and TvnRestart.

#include <stdint.h>

namespace Torvane
{
/// Creates the event and stores the type. Host's thread, at startup.
void StartupHotRestart(uint32_t agentType);

/// Closes the event. Host's thread, at shutdown.
void ShutdownHotRestart();
} // namespace Torvane
