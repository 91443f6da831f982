#pragma once

/// \file
/// How the Bridges of the samples change a function: a jump over its first bytes; one thread.

#include "bridge/Link.h"
#include "bridge/Modules.h"
#include "bridge/ThreadSuspender.h"

#include <stdint.h>

namespace Torvane::Sample
{
/// Bytes of a jump to anywhere in 32-bit code.
constexpr uint32_t jumpSize = 5;

/// Has the Agent write a jump to `to` over the first bytes of the function at `from`, which lies in `module`. The
/// threads have to be held. They are let go on for moments, while one of them stands in those bytes.
/// \return whether the orders were sent.
bool RouteFunction(Bridge::Link& link, Bridge::ThreadSuspender& threads,
                   const Bridge::AnnouncedModule& module, AddressSlot from, AddressSlot to);
} // namespace Torvane::Sample
