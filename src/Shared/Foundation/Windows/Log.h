#pragma once

/// \file
/// The Agent's own log, file and debugger together, as static objects. Host's thread, at startup and shutdown.

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
/// Chooses the levels that reach the debugger, by the bits of `DebugOutputSink`. Before `StartupLog`.
void SetDebugOutputLevelMask(uint32_t mask);

/// Makes the log of file and debugger the current logger. \param file may be the invalid handle value: the file is mute
/// then. It is the log's from here on.
void StartupLog(HANDLE file);

/// Takes the current logger away and closes the file. Nothing may log afterwards.
void ShutdownLog();
} // namespace Torvane
