#pragma once

/// \file
/// The Bridge's process. One thread at a time.

#include "Shared/Foundation/FixedString.h"

namespace Torvane
{
/// The folder of the Agent's own library.
FixedWideString GetLibraryFolder();

/// Starts the Bridge that is in the library's folder, with the identifier for its command line, and keeps its record.
/// \return false after the Error line "Failed to spawn bridge process".
bool SpawnBridge(const FixedWideString& identifier);

/// Closes what `SpawnBridge` has opened, if it has. The process is neither waited for nor ended.
void ReleaseBridge();
} // namespace Torvane
