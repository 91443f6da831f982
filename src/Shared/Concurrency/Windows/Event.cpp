#include "Shared/Concurrency/Windows/Event.h"

#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
Result<HANDLE> Event::Create(const char* name)
{
    const HANDLE created = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (created == nullptr)
    {
        return MakeOSError("CreateEventW(%hs) failed.", name);
    }
    return Success(created);
}

void Event::Destroy()
{
    CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
}

void Event::Signal()
{
    SetEvent(handle);
}

void Event::Reset()
{
    ResetEvent(handle);
}

bool Event::Wait(uint32_t milliseconds)
{
    switch (WaitForSingleObject(handle, milliseconds))
    {
    case WAIT_OBJECT_0:
        return true;
    case WAIT_ABANDONED:
        LogError(TVN_HERE, "Wait() was called on a stale event which was not released by the owning thread");
        return false;
    case WAIT_TIMEOUT:
        if (milliseconds == INFINITE)
        {
            LogError(TVN_HERE, "Event timed out");
        }
        return false;
    case WAIT_FAILED:
        LogError(TVN_HERE, "Failed to Wait() on an event");
        return false;
    default:
        return false;
    }
}

bool Event::TryWait()
{
    return Wait(0);
}
} // namespace Torvane
