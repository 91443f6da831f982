#pragma once

/// \file
/// The latches that are being waited for. An address that comes from outside is followed only if it is listed here. Any
/// thread between creation and destruction.

#include "Shared/Concurrency/Latch.h"
#include "Shared/Memory/Allocation.h"

namespace Torvane
{
class LatchRegistry
{
public:
    /// Creates the event that is signalled once no latch can wait any more, the lock, and a list with room for 4096
    /// latches.
    void Create();

    /// Closes and frees them in the same order.
    void Destroy();

    /// Lists a latch, or releases it at once if no latch can wait any more. More than 4096 aren't tested for.
    void Register(Latch& latch);

    /// Removes a latch from the list, if it is there, and closes its event.
    void Unregister(Latch& latch);

    /// Counts down the latch at `address`, and signals its event with the step from 1 to 0. An address that isn't
    /// listed does nothing.
    void DecrementByAddress(const void* address);

    /// Releases every latch, empties the list, and lets no latch wait from now on.
    void ReleaseAll();

private:
    /// \return the count of the list if the address isn't there.
    uint32_t Find(const void* address) const;

    CRITICAL_SECTION lock = {};
    Allocation list = {};
    Latch** latches = nullptr; ///< in the list
    uint32_t count = 0;
    Event latchesDead = {INVALID_HANDLE_VALUE};
};
} // namespace Torvane
