#pragma once

/// \file
/// The heartbeat thread: shows from outside that the process lives. Host's thread, at startup and shutdown.

#include "Shared/Foundation/FixedString.h"

namespace Torvane::Heartbeat
{
/// Creates the event that ends the thread.
void CreateExitEvent();

/// Starts the thread. It writes the time (`FILETIME`, UTC) at offset 0 of the section `heartbeatSectionPrefix` with the
/// identifier appended, under the mutex `heartbeatMutexPrefix` with the same, every 10 milliseconds. It ends at once,
/// after a Panic line, if one of the two can't be created. A thread that can't be started logs an Error line.
void StartThread(const FixedWideString& identifier);

/// Ends the thread, waits for it, and closes its handle and event.
void EndThread();

/// 0 if the thread couldn't be started.
uint32_t GetThreadId();
} // namespace Torvane::Heartbeat
