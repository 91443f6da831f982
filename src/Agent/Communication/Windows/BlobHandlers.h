#pragma once

/// \file
/// What each received Blob does, as a table; receiver thread only.

#include "Agent/Protocol/Blob.h"
#include "Shared/Memory/Allocation.h"

namespace Torvane
{
/// Handles one Blob. The pointer of `payload` is the first payload byte, its size the payload's; the block stays
/// the caller's. What the Blob says is trusted: addresses, sizes and counts are used as they come.
/// \return whether the receive loop goes on.
using BlobHandler = bool (*)(Allocation* payload);

/// The handler in the table's slot for `type`, of which there are 77 and no check. The slots of numbers that the
/// Agent doesn't accept log "Unknown blob type %u" and return false.
BlobHandler GetBlobHandler(BlobType type);
} // namespace Torvane
