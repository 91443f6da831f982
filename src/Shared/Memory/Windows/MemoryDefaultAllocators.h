#pragma once

/// \file
/// Startup and shutdown of the memory system. Host's thread.

namespace Torvane
{
/// Creates two private heaps of 128 MiB each and 128 empty pools.
void StartupMemorySystem();

/// Destroys them, together with blocks that are still in use. Does nothing if the system isn't started.
void ShutdownMemorySystem();
} // namespace Torvane
