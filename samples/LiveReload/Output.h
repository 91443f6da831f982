#pragma once

/// \file
/// Prints without the runtime library, any thread.
///
/// Hooks and a patch's entry point run while the host's threads are suspended. One of them may own the lock of `stdout`
/// or of a heap, so hooks and entry point mustn't use either.

/// Writes `tag`, two blanks, `text` and a line break to the standard output in one piece of at most 255 bytes.
void PrintLine(const char* tag, const char* text);

/// As above, with a number after `text`.
void PrintLine(const char* tag, const char* text, unsigned number);
