#pragma once

/// \file
/// A named mutex that guards memory which two processes share. Any thread.

#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// A bare handle, the invalid one while there is no mutex.
struct InterprocessMutex
{
    HANDLE handle;

    static Result<HANDLE> Create(const wchar_t* name);
    void Destroy();
};

/// Holds a mutex for a scope. A failed wait is logged, and the scope goes on without the mutex; one that a dead process
/// has left is logged and taken over. The mutex is released in any case.
class ScopedInterprocessLock
{
public:
    explicit ScopedInterprocessLock(const InterprocessMutex& mutex);
    ~ScopedInterprocessLock();

    ScopedInterprocessLock(const ScopedInterprocessLock&) = delete;
    ScopedInterprocessLock& operator=(const ScopedInterprocessLock&) = delete;

private:
    HANDLE mutex;
};
} // namespace Torvane
