#pragma once

/// \file
/// Operations on the memory of a process at the level of the OS: reads that don't fault, page ranges, code writes, the
/// environment block. Any thread may call them after `StartupWindowsInternalAPI`; nothing here takes a lock.

#include "Shared/Container/DynamicArray.h"
#include "Shared/Memory/OwnedAllocation.h"
#include "Shared/Process/PageRange.h"

#include <stddef.h>
#include <stdint.h>
#include <windows.h>

namespace Torvane
{
using PageRangeList = DynamicArray<PageRange>;

/// Copies bytes out of a process; an address that can't be read is a failure, not a fault.
///
/// \param count in bytes.
/// \return false after one Error line for a negative status of the OS, and true for every other status.
bool ReadProcessBytes(HANDLE process, const void* source, void* destination, uint32_t count);

/// Lists the page ranges of [start, start + size) in this process, as the OS reports them.
///
/// Ranges are not clipped to the requested range, so the last one can reach beyond its end. Reserved and free
/// ranges are listed too. Logs every range at Debug level. The list is a snapshot.
/// \param start any address; \param size in bytes, 0 gives an empty list without a query.
/// \return the ranges found, in a list with room for at least 1024; a failed query ends the list early and
/// logs one Error line.
PageRangeList GatherPageRanges(const void* start, size_t size);

/// Copies bytes over code of this process in place, and gives the pages their protection back.
///
/// The copy is attempted even where the protection can't be changed, which logs one Debug line. Nothing keeps a thread
/// from executing the bytes meanwhile.
/// \param count in bytes.
/// \return what `FlushInstructionCache` returned for the written range.
bool WriteCode(void* address, const void* bytes, uint32_t count);

/// Copies the environment block of a 32-bit process.
///
/// The size is the distance from the block's start to the end of its memory region, so the copy normally
/// contains bytes after the block's terminator.
/// \return the copy, or nothing: after an Error line if memory of the process could not be read, without a line
/// if the process or the block's region could not be queried.
OwnedAllocation ReadEnvironmentBlock(HANDLE process);

/// Makes the page of an address of this process executable and keeps the rest of its protection, modifiers
/// such as `PAGE_GUARD` included.
///
/// A page that is executable already, reserved or free stays as it is. Logs the conversion at Debug level,
/// and a failed query as one Error line; a failed change of the protection is not reported.
void MakePageExecutable(void* address);
} // namespace Torvane
