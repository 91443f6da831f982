#pragma once

/// \file
/// The connection's status and how the host learns of it; the one-way calls of the host. Any thread.

#include "Torvane/Agent.h"

namespace Torvane
{
/// Initialises the lock of the connection state. Host's thread, at startup.
void InitializeConnectionState();

/// Deletes the lock. Host's thread, at shutdown.
void DeleteConnectionState();

/// Latches the connection's outcome and tells the host, inside the lock, if it has registered a callback.
void ReportConnectionStatus(TvnConnectionStatus status);
} // namespace Torvane
