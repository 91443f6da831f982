#pragma once

/// \file
/// What the system tells of itself at startup. Host's thread.

#include <windows.h>

namespace Torvane
{
/// Asks for the processors and drops the answer.
void QueryProcessorTopology();

/// Fills `version`, whose size field is set. A failure logs an Error line and leaves the rest as it is.
void QueryOSVersion(OSVERSIONINFOW& version);
} // namespace Torvane
