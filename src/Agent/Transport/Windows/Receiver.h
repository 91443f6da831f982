#pragma once

/// \file
/// The one way in: the receiver thread reads the bridge pipe and runs every Blob's handler itself, one after the
/// other.

#include "Shared/Concurrency/LatchRegistry.h"

#include <windows.h>

namespace Torvane
{
/// The latches that wait for the Bridge; released on every way out of the receiver thread.
extern LatchRegistry latchRegistry;

/// The pipe that the receiver thread reads.
extern HANDLE bridgePipe;

/// Reads the Bridge's `Version`, reports the connection's status, and obeys Blobs until a handler refuses one or
/// the link goes.
/// \return 0 if a handler returned false, 8 or 9 if a header or payload couldn't be read, 18 or 19 if the first
/// Blob wasn't a `Version` or didn't match.
uint32_t RunReceiver();
} // namespace Torvane
