#pragma once

/// \file
/// The Agent's own log, file and debugger together, as static objects. Host's thread, at startup and shutdown.

#include <stdint.h>
#include <windows.h>

namespace Torvane
{
/// Chooses the levels that reach the debugger, by the bits of `DebugOutputSink`. Before `StartupLog`.
void SetDebugOutputLevelMask(uint32_t mask);

/// Makes the log of file and debugger the current logger. \param file owned by the log from here on; the invalid handle
/// value for a log without a file.
void StartupLog(HANDLE file);

/// Removes the current logger and closes the file. Nothing may log afterwards.
void ShutdownLog();
} // namespace Torvane
