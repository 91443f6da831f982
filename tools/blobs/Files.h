#pragma once

/// \file
/// Reads whole files, and writes whole files or none; paths are UTF-8. For the command's only thread.

#include <stdio.h>
#include <string>

namespace Torvane::Blobs
{
/// \return false with a reason, such as "No such file or directory", if the file can't be read to its end.
bool ReadFile(const std::string& path, std::string& content, std::string& reason);

/// Writes a temporary file beside `path` and renames it when it is complete.
/// \param replace whether to replace an existing file; if not, an existing file is an error.
/// \return false with a reason; no file has changed then.
bool WriteFile(const std::string& path, const std::string& content, bool replace, std::string& reason);

/// Whether both paths refer to the same existing file.
bool IsSameFile(const std::string& first, const std::string& second);

// Implemented for each platform.

FILE* OpenFile(const std::string& path, const char* mode);
bool Exists(const std::string& path);
bool IsFolder(const std::string& path);

/// Whether a path refers to something that is neither a file nor a folder, and can't be replaced.
bool IsDevice(const std::string& path);

/// \return false with a reason, for example that `to` exists and `replace` is false.
bool MoveFile(const std::string& from, const std::string& to, bool replace, std::string& reason);
void RemoveFile(const std::string& path);
unsigned long CurrentProcess();
} // namespace Torvane::Blobs
