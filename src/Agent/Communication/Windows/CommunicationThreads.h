#pragma once

/// \file
/// The four long-lived threads of the communication. Host's thread, at startup.

#include "Shared/Foundation/FixedString.h"

#include <windows.h>

namespace Torvane
{
/// Each starts one thread at once and returns its handle, or 0 after an Error line "Failed to create thread".
HANDLE StartHeartbeatThread(const FixedWideString& identifier);
HANDLE StartWatchdogThread();
HANDLE StartSenderThread();
HANDLE StartReceiverThread(const FixedWideString& identifier, uint32_t agentType);
} // namespace Torvane
