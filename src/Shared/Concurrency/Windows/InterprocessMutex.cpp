#include "Shared/Concurrency/Windows/InterprocessMutex.h"

#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
Result<HANDLE> InterprocessMutex::Create(const wchar_t* name)
{
    const HANDLE created = CreateMutexW(nullptr, FALSE, name);
    if (created == nullptr)
    {
        return MakeOSError("CreateMutexW(%ls) failed.", name);
    }
    return Success(created);
}

void InterprocessMutex::Destroy()
{
    if (Exists())
    {
        CloseHandle(handle);
        handle = INVALID_HANDLE_VALUE;
    }
}

ScopedInterprocessLock::ScopedInterprocessLock(const InterprocessMutex& mutex)
    : mutex(mutex.handle)
{
    switch (WaitForSingleObject(mutex.handle, INFINITE))
    {
    case WAIT_ABANDONED:
        LogError(TVN_HERE, "Wait() was called on a stale mutex which was not released by the owning thread");
        break;
    case WAIT_TIMEOUT:
        LogError(TVN_HERE, "Mutex timed out");
        break;
    case WAIT_FAILED:
        LogError(TVN_HERE, "Failed to Wait() on a mutex");
        break;
    default:
        break;
    }
}

ScopedInterprocessLock::~ScopedInterprocessLock()
{
    ReleaseMutex(mutex);
}
} // namespace Torvane
