#pragma once

/// \file
/// Owns a lock until the end of a block; for the thread that creates it.

#include <windows.h>

namespace Torvane::Bridge
{
class ScopedLock
{
public:
    explicit ScopedLock(SRWLOCK& acquired)
        : lock(acquired)
    {
        AcquireSRWLockExclusive(&lock);
    }

    ~ScopedLock()
    {
        ReleaseSRWLockExclusive(&lock);
    }

    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    SRWLOCK& lock;
};
} // namespace Torvane::Bridge
