#pragma once

/// \file
/// Converts UTF-16 strings of Blobs; any thread.

#include <string>

namespace Torvane::Bridge
{
/// UTF-16 as UTF-8; an unpaired surrogate becomes U+FFFD.
std::string Utf8(const std::wstring& string);
} // namespace Torvane::Bridge
