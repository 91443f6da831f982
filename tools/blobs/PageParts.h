#pragma once

/// \file
/// The files of `Page/`, made part of the program by the build.

namespace Torvane::Blobs
{
extern const char pageMarkup[];
extern const char pageStyle[];
extern const char pageScript[];
} // namespace Torvane::Blobs
