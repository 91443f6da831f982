#pragma once

/// \file
/// A host's whole life with an Agent, phase by phase; one thread lives it, another one watches it.

#include "Agent/Protocol/Blob.h"
#include "Board.h"
#include "HostState.h"

#include "Torvane/Agent.h"

#include <stdint.h>

#include <string>

#include <windows.h>

namespace Torvane::Faults
{
/// Writes one line to the standard output. Any thread, also in an exception handler.
void Say(const char* format, ...);

enum class LifeKind
{
    Whole,   ///< a synchronized agent from startup to shutdown; calls are counted all the time
    Restart, ///< a default agent whose restart ends the process; calls are counted from the restart on
};

class Life
{
public:
    Life(LifeKind kind, HMODULE agent, Board& board);

    /// Does that damage while it lives: see `DoDamage`.
    void Suffer(const std::string& damageName)
    {
        damage = damageName;
    }

    /// Lives, and reports each phase: "phase <name> ok" or "phase <name> lost".
    void Run();

    /// The phase that the life is in, and since when. Any thread.
    const char* volatile phase = "begin";
    volatile DWORD phaseStart = GetTickCount();
    volatile bool ended = false;

    /// Whether the exception is one that the life raises on purpose. Any thread.
    static bool IsOnPurpose(const EXCEPTION_RECORD& record);

private:
    using Phase = bool (Life::*)();

    template<typename Export>
    Export* Find(const char* name) const;
    void Play(const char* name, Phase run);
    template<typename Condition>
    bool WaitFor(Condition condition, DWORD milliseconds);
    bool IsConnected() const;
    LONG Received(BlobType type) const;
    uint32_t Fault();

    bool Startup();
    bool Connection();
    bool Damage();
    bool Calls();
    bool Enabling();
    bool Automatic();
    bool Reload();
    bool Exceptions();
    bool Disabling();
    bool Restart();
    bool RestartToTheEnd();
    bool Shutdown();
    bool Afterwards();

    static void TVN_CALL TakeStatus(void* life, TvnConnectionStatus status);
    static bool TVN_CALL KeepModule(void* life, const wchar_t* path);

    LifeKind kind;
    HMODULE library;
    Board& board;
    TvnSynchronizedAgent agent = {};
    TvnDefaultAgent defaultAgent = {};
    volatile LONG status = -1;
    volatile LONG filterCalls = 0;
    DWORD patience;
    std::string damage;
    ThreadState state = {};
};
} // namespace Torvane::Faults
