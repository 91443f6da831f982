#pragma once

/// \file
/// Reads, writes and copies memory of this process for the Bridge, and changes its pages; receiver thread only.
///
/// Addresses, sizes and counts are used as they come. A bad address faults.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// Answers `ReadMemoryResult`. The bytes of an element with the address 0 are undefined.
void ReadMemory(const ReadMemoryBlob& blob);

void WriteMemory(const WriteMemoryBlob& blob);

/// Copies element by element, in order.
void CopyMemoryElements(const CopyMemoryBlob& blob);

/// Skips ranges with the protection 0. A range that can't be changed logs "VirtualProtect() failed: address 0x%p, size
/// 0x%X, protection 0x%X" at Debug level.
void SetPageProtection(const SetPageProtectionWindowsBlob& blob);

/// Flushes the instruction cache for the whole process.
void FlushProcessInstructionCache();
} // namespace Torvane
