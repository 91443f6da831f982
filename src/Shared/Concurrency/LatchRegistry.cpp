#include "Shared/Concurrency/LatchRegistry.h"

#include "Shared/Concurrency/Windows/ScopedCriticalSection.h"
#include "Shared/Memory/MemorySystem.h"

namespace Torvane
{
namespace
{
constexpr uint32_t capacity = 4096;

void Release(Latch& latch)
{
    latch.count = 0;
    latch.event.Signal();
}
} // namespace

void LatchRegistry::Create()
{
    latchesDead.handle = Expect(Event::Create("Cannot wait for latches"), "Cannot create event for startup");
    InitializeCriticalSection(&lock);
    list = Allocate(capacity * static_cast<uint32_t>(sizeof(void*)));
    latches = static_cast<Latch**>(list.pointer);
    count = 0;
}

void LatchRegistry::Destroy()
{
    latchesDead.Destroy();
    DeleteCriticalSection(&lock);
    Free(list);
}

void LatchRegistry::Register(Latch& latch)
{
    const ScopedCriticalSection scope(lock);
    if (latchesDead.TryWait())
    {
        Release(latch);
        return;
    }
    latches[count++] = &latch;
}

void LatchRegistry::Unregister(Latch& latch)
{
    const ScopedCriticalSection scope(lock);
    const uint32_t index = Find(&latch);
    if (index != count)
    {
        latches[index] = latches[--count];
    }
    latch.event.Destroy();
}

void LatchRegistry::DecrementByAddress(const void* address)
{
    const ScopedCriticalSection scope(lock);
    const uint32_t index = Find(address);
    if (index != count && InterlockedDecrement(&latches[index]->count) == 0)
    {
        latches[index]->event.Signal();
    }
}

void LatchRegistry::ReleaseAll()
{
    const ScopedCriticalSection scope(lock);
    for (uint32_t i = 0; i < count; ++i)
    {
        Release(*latches[i]);
    }
    count = 0;
    latchesDead.Signal();
}

uint32_t LatchRegistry::Find(const void* address) const
{
    uint32_t index = 0;
    while (index < count && latches[index] != address)
    {
        ++index;
    }
    return index;
}
} // namespace Torvane
