#pragma once

/// \file
/// The function that the demo changes while the host runs; only the host's main thread calls it.

#include <stddef.h>

/// Formats the line for one value of the host's counter. The counter isn't stored here, so every reload keeps it.
/// \param size of `text` in bytes, the terminator included; a longer line is truncated.
extern "C" __declspec(dllexport) void FormatLine(char* text, size_t size, unsigned counter);
