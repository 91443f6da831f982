#pragma once

/// \file
/// Something to wait for until it was counted down from outside. It lies in the waiting thread's stack frame.

#include "Shared/Concurrency/Windows/Event.h"

#include <stdint.h>

namespace Torvane
{
/// Its address is what the Bridge names in order to count it down; see `LatchRegistry`.
struct Latch
{
    volatile LONG count; ///< what remains
    Event event;         ///< signalled at zero

    /// An event that can't be created panics ("Cannot create event for latch").
    explicit Latch(uint32_t initialCount);

    /// Waits without a limit; a failed wait logs "Could not wait for event in latch".
    void Wait();
};
} // namespace Torvane
