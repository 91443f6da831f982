#pragma once

/// \file
/// Strings of fixed size, held by value. Any thread; a value is its owner's.

#include "Shared/Foundation/CheckedFormat.h"

#include <stdint.h>

namespace Torvane
{
/// Only `Format` looks at the capacity: an overlong `Assign` or `Append` writes past the value.
struct FixedString
{
    uint32_t length; ///< characters, without the terminator
    char text[1024]; ///< zero-terminated

    /// \param source a terminated string of fewer than 1024 characters.
    void Assign(const char* source);

    /// \param source a terminated string.
    void Append(const char* source);

    /// Replaces the string (see `FormatBounded`). What doesn't fit is cut, and the length then keeps its earlier value.
    template<typename... Arguments>
    void Format(FormatOf<Arguments...> format, Arguments... arguments)
    {
        FormatUnchecked(format.Get(), arguments...);
    }

private:
    void FormatUnchecked(const char* format, ...);
};
static_assert(sizeof(FixedString) == 1028, "is copied into Blobs as it is");

/// UTF-16, the type of all paths. The operations are those of `FixedString`.
struct FixedWideString
{
    uint32_t length;    ///< UTF-16 units, without the terminator
    wchar_t text[1024]; ///< zero-terminated

    void Assign(const wchar_t* source);
    void Append(const wchar_t* source);

    template<typename... Arguments>
    void Format(WideFormatOf<Arguments...> format, Arguments... arguments)
    {
        FormatUnchecked(format.Get(), arguments...);
    }

private:
    void FormatUnchecked(const wchar_t* format, ...);
};
static_assert(sizeof(FixedWideString) == 2052, "is copied into Blobs as it is");
} // namespace Torvane
