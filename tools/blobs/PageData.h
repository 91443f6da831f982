#pragma once

/// \file
/// What a page knows of its recording, as bytes; for the command's only thread.

#include "tools/blobs/Filter.h"
#include "tools/blobs/Recording.h"

#include <string>

namespace Torvane::Blobs
{
/// A description in JSON after its size (u32), then columns of numbers, then all payloads, one after the other. Columns are
/// little-endian; each begins at a multiple of 8. `Page/Data.js` reads them in the same order.
std::string MakePageData(const Recording& recording, const Filter& filter, const std::string& title);
} // namespace Torvane::Blobs
