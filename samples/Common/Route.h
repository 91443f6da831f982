#pragma once

/// \file
/// Redirects a function by a jump, for the Bridges of the samples; one thread.

#include "bridge/Link.h"
#include "bridge/Modules.h"
#include "bridge/ThreadSuspender.h"

#include <stdint.h>

namespace Torvane::Sample
{
/// Size in bytes of a jump to any address in 32-bit code.
constexpr uint32_t jumpSize = 5;

/// Makes the Agent write a jump to `to` over the first bytes of the function at `from` in `module`. The threads have to
/// be suspended. They are resumed briefly as long as the instruction pointer of one is in these bytes.
/// \return whether the commands were sent.
bool RouteFunction(Bridge::Link& link, Bridge::ThreadSuspender& threads, const Bridge::EnabledModule& module,
                   Bridge::RemoteAddress from, Bridge::RemoteAddress to);
} // namespace Torvane::Sample
