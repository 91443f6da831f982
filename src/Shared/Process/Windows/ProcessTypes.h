#pragma once

/// \file
/// The record of a child process.

#include "Shared/Container/DynamicRangeArray.h"

#include <windows.h>

namespace Torvane
{
enum SpawnFlags : uint32_t
{
    SpawnDrainsOutput = 0x1,
    SpawnOfAgent = 0x2, ///< only stored and logged
};

/// Released by `ReleaseSpawnedProcess` and not by itself: the Agent's shutdown has an order.
struct SpawnedProcess
{
    HANDLE outputPipe; ///< read end of the child's output, or 0
    PROCESS_INFORMATION information;
    HANDLE drainThread;        ///< the invalid handle value if there is no drain
    DynamicRangeArray* output; ///< the drained bytes, or null; not to be read before the drain has ended
    uint32_t outputBlockSize;  ///< bytes
    uint32_t flags;
};
} // namespace Torvane
