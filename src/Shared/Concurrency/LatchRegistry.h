#pragma once

/// \file
/// The latches that are being waited for. An address that comes from outside is followed only if it stands here. Any
/// thread between creation and destruction.

#include "Shared/Concurrency/Latch.h"
#include "Shared/Memory/Allocation.h"

namespace Torvane
{
class LatchRegistry
{
public:
    /// Creates the event that says that no latch can wait any more, the lock, and room for 4096 latches.
    void Create();

    /// Closes them in the same order.
    void Destroy();

    /// Enters a latch, or releases it at once if no latch can wait any more. More than 4096 aren't tested for.
    void Register(Latch& latch);

    /// Takes a latch out, if it is in, and closes its event.
    void Unregister(Latch& latch);

    /// Counts down the latch at `address`, and signals its event with the step from 1 to 0. An address that isn't
    /// registered does nothing.
    void DecrementByAddress(const void* address);

    /// Releases every latch, empties the list, and lets no latch wait from now on.
    void ReleaseAll();

private:
    static constexpr uint32_t notFound = UINT32_MAX;

    uint32_t Find(const void* address) const;
    Latch** List() const;

    CRITICAL_SECTION lock = {};
    Allocation list = {};
    uint32_t count = 0;
    Event latchesDead = {INVALID_HANDLE_VALUE};
};
} // namespace Torvane
