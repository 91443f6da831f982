#include "Shared/Concurrency/Windows/Semaphore.h"

#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
Result<HANDLE> CreateSemaphoreObject(int32_t initialCount, int32_t maximumCount, const char* name)
{
    const HANDLE created = CreateSemaphoreW(nullptr, initialCount, maximumCount, nullptr);
    if (created == nullptr)
    {
        return MakeOSError("CreateSemaphoreW(%hs) failed.", name);
    }
    return Success(created);
}

Result<bool> WaitForSemaphore(HANDLE semaphore)
{
    const DWORD result = WaitForSingleObject(semaphore, INFINITE);
    switch (result)
    {
    case WAIT_OBJECT_0:
        return Success(true);
    case WAIT_ABANDONED:
        return MakeError(result, "WaitForSingleObject() was called on a stale semaphore which was not "
                                 "released by the owning thread.");
    case WAIT_TIMEOUT:
        return MakeError(result, "Semaphore timed out.");
    case WAIT_FAILED:
        return MakeError(result, "Failed to wait on an semaphore.");
    default:
        return Success(false);
    }
}

Result<bool> SignalSemaphore(HANDLE semaphore)
{
    if (!ReleaseSemaphore(semaphore, 1, nullptr))
    {
        return MakeOSError("ReleaseSemaphore() failed.");
    }
    return Success(true);
}
} // namespace Torvane
