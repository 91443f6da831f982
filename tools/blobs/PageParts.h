#pragma once

/// \file
/// The files of `Page/`, which the build embeds into the program.

namespace Torvane::Blobs
{
extern const char pageMarkup[];
extern const char pageStyle[];
extern const char pageScript[];
} // namespace Torvane::Blobs
