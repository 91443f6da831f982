#pragma once

/// \file
/// Addresses and handles of this process in the 64-bit slots of Blobs; any thread.

#include "Agent/Protocol/Blob.h"

namespace Torvane
{
/// The upper half of the slot is ignored in a 32-bit process.
template<typename Pointer = void*>
Pointer ToPointer(AddressSlot slot)
{
    return reinterpret_cast<Pointer>(static_cast<uintptr_t>(slot));
}

/// The upper half of the slot is 0 in a 32-bit process.
inline AddressSlot ToSlot(const void* address)
{
    return reinterpret_cast<uintptr_t>(address);
}
} // namespace Torvane
