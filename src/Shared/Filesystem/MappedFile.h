#pragma once

/// \file
/// A file that is mapped read-only, as a record; owned as a whole.

#include <stdint.h>

namespace Torvane
{
struct MappedFile
{
    void* file;          ///< OS handle
    void* mapping;       ///< OS handle
    const uint8_t* view; ///< the whole file
};
} // namespace Torvane
