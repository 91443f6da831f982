#pragma once

/// \file
/// Texts for messages; any thread.

#include "bridge/RemoteAddress.h"

#include <string>

namespace Torvane::Bridge
{
/// UTF-16 as UTF-8; an unpaired surrogate becomes U+FFFD.
std::string Utf8(const std::wstring& string);

/// "0x0040A000"
std::string AddressText(RemoteAddress address);
} // namespace Torvane::Bridge
