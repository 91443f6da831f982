#pragma once

/// \file
/// What each received Blob does, as a table; receiver thread only.

#include "Agent/Protocol/Blob.h"
#include "Shared/Memory/Allocation.h"

namespace Torvane
{
/// Handles one Blob by the table's slot for `type`, of which there are 77 and no check. What the Blob says is trusted:
/// addresses, sizes and counts are used as they come.
/// \param payload the payload without the header; the block stays the caller's.
/// \return false, after the Error line "Unknown blob type %u", for a number that the Agent doesn't accept.
bool HandleBlob(BlobType type, const Allocation& payload);
} // namespace Torvane
