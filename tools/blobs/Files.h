#pragma once

/// \file
/// Reading a file whole and writing one whole or not at all; paths are UTF-8. For the command's only thread.

#include <stdio.h>
#include <string>

namespace Torvane::Blobs
{
/// \return false with a reason, "No such file or directory", if the file can't be read to its end.
bool ReadFile(const std::string& path, std::string& content, std::string& reason);

/// Writes a file beside `path` and gives it that name when all of it is there.
/// \param replace otherwise a file that exists is left alone, and that is the reason.
/// \return false with a reason; nothing has changed then.
bool WriteFile(const std::string& path, const std::string& content, bool replace, std::string& reason);

/// Whether both paths lead to one existing file.
bool IsSameFile(const std::string& first, const std::string& second);

// What is done in another way on each platform.

FILE* OpenFile(const std::string& path, const char* mode);
bool Exists(const std::string& path);
bool IsFolder(const std::string& path);

/// \return false with a reason, among them that `to` exists unless it may be replaced.
bool MoveFile(const std::string& from, const std::string& to, bool replace, std::string& reason);
void RemoveFile(const std::string& path);
unsigned long CurrentProcess();
} // namespace Torvane::Blobs
