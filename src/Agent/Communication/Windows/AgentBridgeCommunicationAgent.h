#pragma once

/// \file
/// Brings the communication with the Bridge up and takes it down. Host's thread.

#include "Shared/Foundation/FixedString.h"
#include "Torvane/Agent.h"

namespace Torvane::AgentBridgeCommunicationAgent
{
/// Creates every object and thread of the communication and doesn't wait: the Bridge is spawned and waited for on the
/// receiver thread.
/// \param identifier makes the names of pipes and shared objects this process's own.
/// \return false if a named pipe couldn't be created; nothing that was created until then is released.
bool Startup(const FixedWideString& identifier, uint32_t agentType, const wchar_t* projectPreferencesFile,
             const TvnProjectPreferences* projectPreferences);

/// Undoes `Startup`. Waits, without a limit, for the end of the initialization on the receiver thread.
void Shutdown();
} // namespace Torvane::AgentBridgeCommunicationAgent
