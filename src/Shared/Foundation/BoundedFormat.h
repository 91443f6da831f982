#pragma once

/// \file
/// Our own printf, which never allocates, takes no lock and looks at no locale. Any thread.
///
/// Conversions, by the conventions of the platform: %d %i %u %x %X %o %c %p (upper-case digits, as wide as a pointer),
/// %f, %hs (narrow text), %ls (wide text), %s (text of the output's own width), %%; flags `-`, `+`, blank, `0`, `#`;
/// width and precision, also as `*`; sizes hh, h, l, ll, z, t, j, I64. Wide text becomes UTF-8 in narrow output and
/// narrow text is read as UTF-8 in wide output; what is malformed becomes U+FFFD. A width and a precision of a text
/// count the units of the text that is read. A double is rounded to the nearest text, and to the
/// even one of two that are equally near; decimals behind the 64th are zeros.

#include <stdarg.h>
#include <stddef.h>

namespace Torvane
{
/// Formats into `buffer` of `size` bytes, terminator included.
/// \return characters written, without the terminator; negative if the text was cut. A cut text fills the buffer and is
/// terminated; the cut can fall into a UTF-8 sequence.
int FormatBounded(char* buffer, size_t size, const char* format, ...);
int FormatBoundedV(char* buffer, size_t size, const char* format, va_list arguments);

/// The same with UTF-16 output; `size` in units.
int FormatBoundedWide(wchar_t* buffer, size_t size, const wchar_t* format, ...);
int FormatBoundedWideV(wchar_t* buffer, size_t size, const wchar_t* format, va_list arguments);
} // namespace Torvane
