#pragma once

/// \file
/// Assigns overlapping spans to lanes; for the command's only thread.

#include "tools/blobs/Operations.h"

#include <vector>

namespace Torvane::Blobs
{
/// Sorts the spans as `Operations` requires, and assigns each to the first lane of its track where it doesn't overlap
/// another one in part.
void AssignLanes(std::vector<Span>& spans);
} // namespace Torvane::Blobs
