#pragma once

/// \file
/// A file that is mapped read-only, as a record; owned as a whole.

#include "Shared/Foundation/Result.h"

#include <stdint.h>

namespace Torvane
{
struct MappedFile
{
    void* file;          ///< OS handle
    void* mapping;       ///< OS handle
    const uint8_t* view; ///< the whole file
};

/// Maps a whole file for reading. A failure leaves no handle open; a file of no bytes can't be mapped. Owned by the
/// caller. \param path UTF-16.
Result<MappedFile> OpenMappedFile(const wchar_t* path);

/// Closes in the reverse order of opening, and clears the record.
void CloseMappedFile(MappedFile& file);
} // namespace Torvane
