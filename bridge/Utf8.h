#pragma once

/// \file
/// Wide text of Blobs for people to read; any thread.

#include <string>

namespace Torvane::Bridge
{
/// UTF-16 as UTF-8; half a character becomes U+FFFD.
std::string Utf8(const std::wstring& text);
} // namespace Torvane::Bridge
