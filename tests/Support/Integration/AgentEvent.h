#pragma once

/// \file
/// Faults of the Agent's events; for the thread that runs the test.

#include "tests/Support/FakeImport.h"
#include "tests/Support/Wait.h"

#include <windows.h>

namespace Torvane::Testing
{
/// The numbers of some events in the order in which an Agent creates them.
constexpr LONG loadPatchReceivedEvent = 4;
constexpr LONG hotReloadFinishedEvent = 6;
constexpr LONG watchdogEnterEvent = 11;
constexpr LONG watchdogWatchEvent = 13;

/// Knows one of the Agent's events, and can change what its waits and signals do. One object per process, constructed
/// before the Agent is started and never destroyed.
class AgentEvent
{
public:
    /// \param module the Agent's library, loaded.
    /// \param numberOfEvent counted from 1.
    AgentEvent(void* module, LONG numberOfEvent)
        : create(module, "CreateEventW", &Create)
        , wait(module, "WaitForSingleObject", &Wait)
        , set(module, "SetEvent", &Set)
    {
        number = numberOfEvent;
        testThread = GetCurrentThreadId();
    }

    /// Null until the Agent has created it.
    static HANDLE Get()
    {
        return event;
    }

    /// From now on waits for it with this time-out in milliseconds fail.
    static void FailWaits(DWORD timeOut)
    {
        failingTimeOut = timeOut;
        fails = true;
    }

    /// From now on waits for it with the one time-out have the other.
    static void ChangeTimeOut(DWORD from, DWORD to)
    {
        changedTimeOut = from;
        newTimeOut = to;
    }

    /// From now on signals by other threads than this one are lost.
    static void LoseSignals()
    {
        losesSignals = true;
    }

    /// From now on, after signals by this thread, the thread that waits for it runs first, as far as it can.
    static void YieldAfterSignals()
    {
        yields = true;
    }

    /// How many waits for it have begun.
    static LONG CountWaits()
    {
        return waits;
    }

private:
    static HANDLE WINAPI Create(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL signalled,
                                const wchar_t* name)
    {
        const HANDLE created = CreateEventW(security, manual, signalled, name);
        if (InterlockedIncrement(&createdCount) == number)
        {
            event = created;
        }
        return created;
    }

    static DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds)
    {
        if (handle != event)
        {
            return WaitForSingleObject(handle, milliseconds);
        }
        InterlockedIncrement(&waits);
        if (fails && milliseconds == failingTimeOut)
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        return WaitForSingleObject(handle, milliseconds == changedTimeOut ? newTimeOut : milliseconds);
    }

    static BOOL WINAPI Set(HANDLE handle)
    {
        if (handle != event)
        {
            return SetEvent(handle);
        }
        const bool isOwn = GetCurrentThreadId() == testThread;
        const BOOL signalled = (losesSignals && !isOwn) || SetEvent(handle);
        if (yields && isOwn)
        {
            WaitUntil([] { return WaitForSingleObject(event, 0) == WAIT_TIMEOUT; }, quietPeriod);
            Sleep(quietPeriod); // it has been reset; what follows can't be seen
        }
        return signalled;
    }

    static inline volatile LONG createdCount = 0;
    static inline LONG number = 0;
    static inline DWORD testThread = 0;
    static inline volatile HANDLE event = nullptr;
    static inline volatile LONG waits = 0;
    static inline volatile bool fails = false;
    static inline DWORD failingTimeOut = 0;
    static inline volatile DWORD changedTimeOut = INFINITE;
    static inline volatile DWORD newTimeOut = INFINITE;
    static inline volatile bool losesSignals = false;
    static inline bool yields = false;

    ReplacedImport create;
    ReplacedImport wait;
    ReplacedImport set;
};
} // namespace Torvane::Testing
