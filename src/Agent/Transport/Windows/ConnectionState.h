#pragma once

/// \file
/// The connection's status and the host's callback for it. Any thread, unless a comment says otherwise.

#include "Torvane/Agent.h"

namespace Torvane
{
/// Initializes the lock. Host's thread, at startup.
void InitializeConnectionState();

/// Deletes the lock. Host's thread, at shutdown.
void DeleteConnectionState();

/// Stores the connection's status and calls the host's callback, inside the lock, if one is set.
void ReportConnectionStatus(TvnConnectionStatus status);

/// Sets the host's callback, and calls it, inside the lock, if a status has been reported.
/// \param callback isn't tested for null by that call.
void SetConnectionCallback(void* context, TvnConnectionCallback callback);
} // namespace Torvane
