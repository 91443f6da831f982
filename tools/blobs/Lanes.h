#pragma once

/// \file
/// Where spans are drawn that may overlap; for the command's only thread.

#include "tools/blobs/Operations.h"

#include <vector>

namespace Torvane::Blobs
{
/// Sorts spans as `Operations` has them, and puts each into the first lane of its track where it lies beside or within the
/// others.
void AssignLanes(std::vector<Span>& spans);
} // namespace Torvane::Blobs
