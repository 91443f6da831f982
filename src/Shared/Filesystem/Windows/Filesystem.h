#pragma once

/// \file
/// Files and paths. Any thread. Paths are UTF-16 of up to 1023 units, which isn't tested.

#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// \return the OS's canonical form of a path that exists: absolute, without relative parts, in the OS's letter case. A
/// path that can't be opened is returned unchanged, and nothing is logged.
FixedWideString NormalizePath(const wchar_t* path);

/// \return what precedes the last `\` or `/`, the first character not considered; the whole path if there is none.
/// \param length in UTF-16 units.
FixedWideString GetDirectory(const wchar_t* path, uint32_t length);

/// \return the full path of the process's main executable.
FixedWideString GetExecutablePath();

/// Creates a file for writing, which others may read, and replaces an earlier one. The caller owns the handle.
Result<HANDLE> CreateFileForWriting(const wchar_t* path);

/// \return the path of a log file in "Torvane 2\Logs" of the user's local application data folder. The folder isn't
/// created.
FixedWideString GetLogFilePath(const wchar_t* fileName);

/// Converts a host's path from the runtime's multibyte encoding. The length is that of `path`, in bytes, whatever the
/// conversion wrote.
FixedWideString WidenPath(const char* path);
} // namespace Torvane
