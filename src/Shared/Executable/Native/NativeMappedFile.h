#pragma once

/// \file
/// Mapped files on the machine that builds, for native tests and tools of the image reader; any one thread.

#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Foundation/Result.h"

#include <stdint.h>

namespace Torvane
{
/// Maps a file read-only. Fails in the words of the platform's operation, with `errno` for the code.
///
/// \param path UTF-16.
Result<MappedFile> OpenMappedFile(const wchar_t* path);

/// Lends a buffer as a mapped file; closing it leaves the buffer alone.
MappedFile LendAsMappedFile(const void* buffer);

/// Ends the mapping and clears the fields.
void CloseMappedFile(MappedFile& file);

/// Calls of `CloseMappedFile` so far.
extern uint32_t closedMappedFiles;
} // namespace Torvane
