#pragma once

/// \file
/// The OS's loader lock; any thread.

namespace Torvane
{
/// The address of the critical section that the loader of this process works under, from the process environment block.
/// It doesn't move as long as the process lives. Logs "Found loader lock at 0x%p" at Debug level.
void* GetLoaderLock();
} // namespace Torvane
