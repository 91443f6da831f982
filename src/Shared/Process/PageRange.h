#pragma once

/// \file
/// One run of pages of like state, as the page range lists of a process hold it; plain data, any thread.

#include <stddef.h>
#include <stdint.h>

namespace Torvane
{
/// A run of pages as the OS reports it. Laid out like the wire record, so that lists are copied as they are.
struct PageRange
{
    uint64_t base;       ///< address of the first page
    uint64_t size;       ///< bytes
    uint32_t protection; ///< in the values of `VirtualProtect`; 0 for free and reserved pages
    uint32_t padding;    ///< always 0
};
static_assert(sizeof(PageRange) == 24);
static_assert(offsetof(PageRange, size) == 8);
static_assert(offsetof(PageRange, protection) == 16);
} // namespace Torvane
