#pragma once

/// \file
/// What the Agent asks of the system at startup.

#include <windows.h>

namespace Torvane
{
/// Asks for the processors and drops the answer.
void QueryProcessorTopology();

/// Fills `version`, whose size field is set. A failure logs an Error line and leaves the rest as it is.
void QueryOSVersion(OSVERSIONINFOW& version);

/// Both queries, in this order; the version is kept. Host's thread.
void StartupSystem();

/// The version that `StartupSystem` has kept, zeros if the OS didn't report it. Any thread.
const OSVERSIONINFOW& GetOSVersion();
} // namespace Torvane
