#pragma once

/// \file
/// Printing past the runtime library, any thread.
///
/// Hooks and a patch's entry point run while the host's threads are held. One of those may own the lock of
/// `stdout` or of a heap, so nothing that runs then may use either.

/// Writes `tag`, two blanks, `text` and a line break to the standard output in one piece of at most 255 bytes.
void PrintLine(const char* tag, const char* text);

/// `text` with a number behind it.
void PrintLine(const char* tag, const char* text, unsigned number);
