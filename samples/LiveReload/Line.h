#pragma once

/// \file
/// The function that the demo changes while the host runs; only the host's main thread calls it.

#include <stddef.h>

/// Writes what the host prints for one value of its counter. The counter itself is the host's, not ours, so it
/// outlasts every reload.
/// \param size of `text` in bytes, the terminator included; longer texts are cut.
extern "C" __declspec(dllexport) void FormatLine(char* text, size_t size, unsigned counter);
