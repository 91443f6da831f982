#pragma once

/// \file
/// Paths that come from the host in narrow text; any thread.

#include "Shared/Foundation/FixedString.h"

namespace Torvane
{
/// Converts by the runtime's multibyte encoding. The length is the narrow text's, whatever the conversion made.
/// \param path of fewer than 1024 characters, which isn't tested.
FixedWideString WidenPath(const char* path);
} // namespace Torvane
