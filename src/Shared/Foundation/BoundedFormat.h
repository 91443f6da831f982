#pragma once

/// \file
/// Our own printf, with the conversions of `CheckedFormat`. It never allocates, takes no lock and reads no locale. Any
/// thread.
///
/// A UTF-16 string becomes UTF-8 in a format of `char`, with U+FFFD for what is malformed. A width and a limit count the
/// characters of the string that is read. A null string is written as "(null)".

#include "Shared/Foundation/CheckedFormat.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

namespace Torvane
{
/// \return `value` times 100, rounded to the nearest integer, and to the even one of two that are equally near. This is
/// exact from 0 to below 2^57, which holds every time in seconds that a counter of 128 Hz or more measures; all other
/// values, of which no clock returns any, give 0.
uint64_t RoundToHundredths(double value);

/// What the checked functions forward to. `format` has to fit the arguments.
namespace Unchecked
{
int FormatBounded(char* buffer, size_t size, const char* format, ...);
int FormatBoundedV(char* buffer, size_t size, const char* format, va_list arguments);
int FormatBoundedWideV(wchar_t* buffer, size_t size, const wchar_t* format, va_list arguments);
} // namespace Unchecked

/// Formats into `buffer` of `size` bytes, terminator included.
/// \return characters written, without the terminator; negative if the text was cut. A cut text fills the buffer and is
/// terminated; the cut can be inside a UTF-8 sequence.
template<typename... Arguments>
int FormatBounded(char* buffer, size_t size, FormatOf<Arguments...> format, Arguments... arguments)
{
    return Unchecked::FormatBounded(buffer, size, format.Get(), arguments...);
}
} // namespace Torvane
