#pragma once

/// \file
/// A critical section of the OS, held for a scope; the thread that made the scope.

#include <windows.h>

namespace Torvane
{
class ScopedCriticalSection
{
public:
    explicit ScopedCriticalSection(CRITICAL_SECTION& section)
        : section(section)
    {
        EnterCriticalSection(&section);
    }

    ~ScopedCriticalSection()
    {
        LeaveCriticalSection(&section);
    }

    ScopedCriticalSection(const ScopedCriticalSection&) = delete;
    ScopedCriticalSection& operator=(const ScopedCriticalSection&) = delete;

private:
    CRITICAL_SECTION& section;
};
} // namespace Torvane
