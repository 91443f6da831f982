#pragma once

/// \file
/// For Bridge halves that suspend threads thousands of times; used by one thread.

#include <stdint.h>

#include <process.h>
#include <windows.h>

namespace Torvane::Testing
{
/// Ends host and Bridge if the Bridge gets no further, and makes the file that the environment names, for which
/// `cmake/run-in-wine` runs the test again, at most twice.
///
/// Wine 8.0 can lose a suspension: the thread has stopped, but the server doesn't know, and whoever asks for the thread's
/// registers waits forever (seen in `Wow64GetThreadContext`, once in some thousand reloads, with every thread of the host
/// in Wine's handler of the suspending signal). No call of the OS ends that wait. All waits for the Agent have limits, so
/// that a Bridge without progress for longer than they all take together is in one of the OS's.
class LostSuspension
{
public:
    /// \param milliseconds more than all limited waits between two calls of `NoteProgress`.
    LostSuspension(uint32_t hostProcessId, uint32_t milliseconds)
        : limit(milliseconds)
        , host(OpenProcess(PROCESS_TERMINATE, FALSE, hostProcessId))
        , events{CreateEventW(nullptr, FALSE, FALSE, nullptr), CreateEventW(nullptr, FALSE, FALSE, nullptr)}
        , thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Watch, this, 0, nullptr)))
    {
    }

    ~LostSuspension()
    {
        SetEvent(events[0]);
        WaitForSingleObject(thread, INFINITE);
        for (const HANDLE handle : {thread, events[0], events[1], host})
        {
            CloseHandle(handle);
        }
    }

    LostSuspension(const LostSuspension&) = delete;
    LostSuspension& operator=(const LostSuspension&) = delete;

    void NoteProgress()
    {
        SetEvent(events[1]);
    }

private:
    static void AskForAnotherRun()
    {
        char path[MAX_PATH] = {};
        GetEnvironmentVariableA("TORVANE_RUN_AGAIN", path, MAX_PATH);
        CloseHandle(CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    }

    static unsigned __stdcall Watch(void* context)
    {
        const LostSuspension& watch = *static_cast<const LostSuspension*>(context);
        for (;;)
        {
            switch (WaitForMultipleObjects(2, watch.events, FALSE, watch.limit))
            {
            case WAIT_OBJECT_0:
                return 0;
            case WAIT_TIMEOUT:
                AskForAnotherRun();
                TerminateProcess(watch.host, 1);
                TerminateProcess(GetCurrentProcess(), 1);
                break;
            default:
                break;
            }
        }
    }

    uint32_t limit;
    HANDLE host;
    HANDLE events[2]; ///< the end, and progress
    HANDLE thread;
};
} // namespace Torvane::Testing
