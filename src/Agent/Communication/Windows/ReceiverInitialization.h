#pragma once

/// \file
/// The slow half of startup: spawns the Bridge, waits for it and registers with it. Receiver thread only.

#include "Agent/Communication/Windows/Registration.h"
#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Concurrency/Windows/InterprocessMutex.h"
#include "Shared/Filesystem/Windows/NamedSharedMemory.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Process/Windows/ProcessTypes.h"

#include <windows.h>

namespace Torvane
{
/// What the initialization works with. Made by startup, closed by shutdown.
struct InitializationState
{
    Event startupFinished = {INVALID_HANDLE_VALUE}; ///< set at the end of the initialization, however it went
    NamedSharedMemory memory = {};                  ///< where the project preferences are published
    InterprocessMutex mutex = {INVALID_HANDLE_VALUE};
    SpawnedProcess bridge = {};
    bool bridgeSpawned = false;
    HANDLE senderThread = INVALID_HANDLE_VALUE;
    HANDLE receiverThread = INVALID_HANDLE_VALUE;
    HANDLE heartbeatThread = INVALID_HANDLE_VALUE;
    HANDLE watchdogThread = INVALID_HANDLE_VALUE;
};
extern InitializationState initializationState;

/// Body of the receiver thread: the initialization, then the receive loop.
/// \return 10 if the Bridge couldn't be spawned, 11 if a pipe didn't connect, 12 if the process's executable
/// couldn't be opened, otherwise the receive loop's result.
uint32_t InitializeAndReceive(const FixedWideString& identifier, uint32_t agentType);
} // namespace Torvane
