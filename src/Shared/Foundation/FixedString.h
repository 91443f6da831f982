#pragma once

/// \file
/// Texts of fixed size, held by value; any thread, each value its owner's.

#include <stdint.h>

namespace Torvane
{
/// Narrow text. Only `Format` looks at the capacity: an overlong `Assign` or `Append` runs past the value.
struct FixedString
{
    uint32_t length; ///< characters, without the terminator
    char text[1024]; ///< zero-terminated

    /// Takes over a terminated text of fewer than 1024 characters.
    void Assign(const char* source);

    /// Puts a terminated text behind the present one.
    void Append(const char* source);

    /// Formats (see `FormatBounded`). What doesn't fit is cut, and the length then keeps its earlier value.
    void Format(const char* format, ...);
};
static_assert(sizeof(FixedString) == 1028, "goes into Blobs as it is");

/// Wide text, the type of all paths. The operations are those of `FixedString`.
struct FixedWideString
{
    uint32_t length;    ///< UTF-16 units, without the terminator
    wchar_t text[1024]; ///< zero-terminated

    void Assign(const wchar_t* source);
    void Append(const wchar_t* source);
    void Format(const wchar_t* format, ...);
};
static_assert(sizeof(FixedWideString) == 2052, "goes into Blobs as it is");
} // namespace Torvane
