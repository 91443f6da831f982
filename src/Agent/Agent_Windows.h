#pragma once

/// \file
/// The order of startup and shutdown, and what startup keeps for others; the exported startup functions,
/// TvnShutdown, TvnCheckVersion and TvnGetVersion. Host's thread.

#include <windows.h>

namespace Torvane
{
/// The version of the OS, filled at startup; zeros if the OS doesn't tell.
extern OSVERSIONINFOW osVersion;
} // namespace Torvane
