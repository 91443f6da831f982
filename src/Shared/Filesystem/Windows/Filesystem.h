#pragma once

/// \file
/// Files and paths. Any thread. Paths are UTF-16; longer ones than 1023 units aren't tested for.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// The OS's canonical form of a path that exists: absolute, without relative parts, in the OS's letter case. A path that
/// can't be opened comes back as it is, without a word.
FixedWideString NormalizePath(const wchar_t* path);

/// What stands before the last `\` or `/`, the first character not looked at; the whole path if there is none.
/// \param length in UTF-16 units.
FixedWideString GetDirectory(const wchar_t* path, uint32_t length);

/// Full path of the process's main executable.
FixedWideString GetExecutablePath();

/// Makes a file for writing, which others may read, in place of any earlier one. Owned by the caller.
Result<HANDLE> CreateFileForWriting(const wchar_t* path);

/// The path of a log file: in "Torvane 2\Logs" of the user's local application data folder, which isn't made here.
FixedWideString GetLogFilePath(const wchar_t* fileName);
} // namespace Torvane
