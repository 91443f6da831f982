#pragma once

/// \file
/// The three Blobs that tell the Bridge who we are. Startup builds the first, the receiver thread the others.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Memory/Allocation.h"
#include "Torvane/Agent.h"

#include <windows.h>

namespace Torvane
{
/// Builds `RegisterProjectPreferences` in one of its three forms: by file if `path` isn't null (made absolute by
/// the folder of the process's executable, and normalized), else by record, else empty. Owned by the caller.
Allocation BuildRegisterProjectPreferences(const wchar_t* path, const TvnProjectPreferences* record);

/// Builds `RegisterAgent`, with the OS version that startup has asked for. Owned by the caller.
Allocation BuildRegisterAgent(uint32_t agentType);

/// The ids that a Bridge needs to leave the Agent's threads running.
struct AgentThreadIds
{
    uint32_t sender;
    uint32_t receiver;
    uint32_t heartbeat;
    uint32_t watchdog;
};

/// Builds `RegisterProcess` into `blob`, which is the caller's then.
/// \return false if the process's executable couldn't be opened as an image; that is logged as
/// "Failed to open executable %ls".
bool BuildRegisterProcess(const AgentThreadIds& threads, Allocation& blob);
} // namespace Torvane
