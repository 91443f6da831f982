#pragma once

/// \file
/// Strings that the Broker writes into the host's debugger; receiver thread only. The level isn't looked at, and nothing
/// goes into the Agent's own log.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
void ShowNarrowLog(const LogBlob& blob);
void ShowWideLog(const LogBlob& blob);
} // namespace Torvane
