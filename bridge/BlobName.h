#pragma once

/// \file
/// Names of Blobs and of their two directions; any thread, any platform.

#include "Agent/Protocol/Blob.h"

#include <string>

namespace Torvane::Bridge
{
enum class Direction
{
    FromAgent,
    ToAgent,
};

/// "ReadMemory" for 25; "Blob 2" for a number that isn't in `BlobType`.
std::string BlobName(BlobType type);
} // namespace Torvane::Bridge
