#pragma once

/// \file
/// The watchdog thread: guards a patch load while the Bridge keeps the host's threads suspended.
///
/// But for `ScopedWatch`, what is declared here is called on the host's thread, at startup and shutdown.

#include <stdint.h>

namespace Torvane::Watchdog
{
void CreateEvents();

/// Starts the thread. A guarded load that takes longer than 500 milliseconds sends `ResumeHeldThreads`, and
/// `SuspendHeldThreads` when it has ended. A thread that can't be started logs an Error line.
void StartThread();

/// Ends the thread, waits for it, and closes its handle and events.
void EndThread();

/// 0 if the thread couldn't be started.
uint32_t GetThreadId();

/// A load that is guarded if the Bridge asks for it; receiver thread.
class ScopedWatch
{
public:
    explicit ScopedWatch(bool guarded);
    ~ScopedWatch();
    ScopedWatch(const ScopedWatch&) = delete;
    ScopedWatch& operator=(const ScopedWatch&) = delete;

private:
    bool guarded;
};
} // namespace Torvane::Watchdog
