#pragma once

/// \file
/// The type of addresses that belong to another process; any thread.

#include "Agent/Protocol/Blob.h"

namespace Torvane::Bridge
{
/// An address, a handle or a size of the Agent's process. It means nothing in the Bridge's own.
using RemoteAddress = AddressSlot;
} // namespace Torvane::Bridge
