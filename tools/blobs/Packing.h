#pragma once

/// \file
/// Makes bytes small, and harmless within a page; for the command's only thread.

#include <string>

namespace Torvane::Blobs
{
/// The zlib format, which browsers call "deflate".
std::string Deflate(const std::string& bytes);

std::string Base64(const std::string& bytes);
} // namespace Torvane::Blobs
