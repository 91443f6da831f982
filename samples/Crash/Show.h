#pragma once

/// \file
/// What there is to see: lines in one file, which the host and its Bridge take turns to write; any thread.

namespace Torvane::Sample
{
/// Opens the file that the environment variable `TORVANE_CRASH_LOG` names, for appending. To be called once, first.
/// \return false if that's not possible.
bool StartShow();

/// Writes a line: the tag, which the script colours it by, two blanks and the text, as of `printf`; at most 240
/// characters in all.
void Show(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));
} // namespace Torvane::Sample
