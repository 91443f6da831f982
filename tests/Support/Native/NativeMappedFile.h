#pragma once

/// \file
/// Mapped files on the machine that builds, for native tests and tools of the image reader; any one thread. A failure
/// has the name of the platform's operation, with `errno` for the code.

#include "Shared/Filesystem/MappedFile.h"

#include <stdint.h>

namespace Torvane
{
/// Lends a buffer as a mapped file; closing it leaves the buffer alone.
MappedFile LendAsMappedFile(const void* buffer);

/// Calls of `CloseMappedFile` so far.
extern uint32_t closedMappedFiles;

/// The view of the last one.
extern const uint8_t* lastClosedView;
} // namespace Torvane
