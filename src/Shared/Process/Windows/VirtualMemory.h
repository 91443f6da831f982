#pragma once

/// \file
/// Reserving and committing address space. Any thread. Sizes are in bytes.

#include <stddef.h>
#include <stdint.h>

namespace Torvane::VirtualMemory
{
/// The OS's page size.
uint32_t GetPageSize();

size_t RoundUpToPages(size_t size);

/// Reserves pages wherever there is room. \return null for size 0, and after an Error line.
void* Reserve(size_t size);

/// Reserves pages at an address. \return false after an Error line.
bool ReserveAt(void* address, size_t size);

/// Commits reserved pages for reading and writing. \return false after an Error line.
bool Commit(void* address, size_t size);

/// Releases a whole reservation.
void Release(void* address);
} // namespace Torvane::VirtualMemory
