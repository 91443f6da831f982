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

    bool Exists() const
    {
        return handle != INVALID_HANDLE_VALUE;
    }

    void Destroy();
};

/// Holds a mutex for a scope. A failed wait logs an Error line, and the scope runs without the mutex; a mutex that a
/// process left at its end logs one too and is held. The mutex is released in any case.
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
