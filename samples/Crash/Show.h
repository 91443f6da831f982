#pragma once

/// \file
/// Writes lines to one file, which the host and its Bridge share; any thread.

namespace Torvane::Sample
{
/// Opens the file that the environment variable `TORVANE_CRASH_LOG` names, for appending. To be called once, first.
/// \return whether the file is open.
bool StartShow();

/// Writes a line of at most 240 characters: the tag, by which the script chooses a color, two blanks, and the text,
/// formatted as by `printf`.
void Show(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));
} // namespace Torvane::Sample
