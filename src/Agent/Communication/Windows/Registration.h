#pragma once

/// \file
/// The three Blobs that register this process with the Bridge. Startup builds the first, the receiver thread the others.

#include "Agent/Protocol/BlobBuilder.h"
#include "Torvane/Agent.h"

namespace Torvane
{
/// Builds `RegisterProjectPreferences` in one of its three forms: by file if `path` isn't null (made absolute by
/// the folder of the process's executable, and normalized), else by record, else empty.
OwnedBlob BuildRegisterProjectPreferences(const wchar_t* path, const TvnProjectPreferences* record);

/// Builds `RegisterAgent`, with the OS version that startup has stored.
OwnedBlob BuildRegisterAgent(uint32_t agentType);

/// The ids that a Bridge needs to leave the Agent's threads running.
struct AgentThreadIds
{
    uint32_t sender;
    uint32_t receiver;
    uint32_t heartbeat;
    uint32_t watchdog;
};

/// Builds `RegisterProcess`.
/// \return no Blob, after the Error line "Failed to open executable %ls", if the process's executable couldn't be opened as
/// an image.
OwnedBlob BuildRegisterProcess(const AgentThreadIds& threads);
} // namespace Torvane
