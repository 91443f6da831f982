#pragma once

/// \file
/// Brings the memory system up and down. Host's thread.

namespace Torvane
{
/// Creates two private heaps of 128 MiB each and 128 empty pools.
void StartupMemorySystem();

/// Destroys them. Blocks that are still in use vanish. Does nothing if the system isn't up.
void ShutdownMemorySystem();
} // namespace Torvane
