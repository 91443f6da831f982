#pragma once

/// \file
/// A file that is mapped read-only. Any thread.

#include "Shared/Foundation/Result.h"

#include <stdint.h>

namespace Torvane
{
/// Owned as a whole, and given back with `CloseMappedFile`.
struct MappedFile
{
    void* file;          ///< OS handle
    void* mapping;       ///< OS handle
    const uint8_t* view; ///< the whole file
};

/// Maps a whole file. A failure leaves no handle open; an empty file can't be mapped.
/// \param path UTF-16.
Result<MappedFile> OpenMappedFile(const wchar_t* path);

/// Closes in the reverse order of opening, and clears the record.
void CloseMappedFile(MappedFile& file);
} // namespace Torvane
