#pragma once

/// \file
/// An event that is signalled once a count reaches zero. Belongs to the waiting thread, in whose stack frame it is.

#include "Shared/Concurrency/Windows/Event.h"
#include "Shared/Foundation/Logger.h"

#include <stdint.h>

namespace Torvane
{
/// Its address is what the Bridge names in order to count it down; see `LatchRegistry`.
struct Latch
{
    volatile LONG count; ///< what remains
    Event event;         ///< signalled at zero

    /// An event that can't be created panics ("Cannot create event for latch").
    explicit Latch(uint32_t initialCount)
        : count(static_cast<LONG>(initialCount))
        , event{Expect(Event::Create("Latch"), "Cannot create event for latch")}
    {
    }

    /// Waits without a limit; a failed wait logs "Could not wait for event in latch".
    void Wait()
    {
        if (!event.Wait())
        {
            LogError(TVN_HERE, "Could not wait for event in latch");
        }
    }
};
} // namespace Torvane
