#include "Shared/Concurrency/Latch.h"

#include "Shared/Foundation/Logger.h"

namespace Torvane
{
Latch::Latch(uint32_t initialCount)
    : count(static_cast<LONG>(initialCount))
    , event{Expect(Event::Create("Latch"), "Cannot create event for latch")}
{
}

void Latch::Wait()
{
    if (!event.Wait())
    {
        LogError(TVN_HERE, "Could not wait for event in latch");
    }
}
} // namespace Torvane
