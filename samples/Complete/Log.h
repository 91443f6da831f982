#pragma once

/// \file
/// The file complete.log beside the programs of this sample, to which hosts and Bridges write; any thread.

/// Adds a line of at most 250 bytes, formatted as by `printf`.
__attribute__((format(printf, 1, 2))) void Log(const char* format, ...);
