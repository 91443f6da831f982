#pragma once

/// \file
/// One module that is loaded in this process; plain data, any thread.

#include "Shared/Foundation/FixedString.h"

#include <stddef.h>
#include <stdint.h>

namespace Torvane
{
/// Laid out like the wire record, so that lists are copied as they are.
struct ModuleIdentity
{
    FixedWideString path; ///< full path, as the OS reports it
    uint32_t padding804;  ///< always 0
    uint64_t base;        ///< address of the first page
    uint32_t imageSize;   ///< bytes, from the first page to the end of the last
    uint32_t padding814;  ///< always 0
};
static_assert(sizeof(ModuleIdentity) == 2072);
static_assert(offsetof(ModuleIdentity, base) == 2056);
static_assert(offsetof(ModuleIdentity, imageSize) == 2064);
} // namespace Torvane
