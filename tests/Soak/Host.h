#pragma once

/// \file
/// The host of the soak: one process that does one campaign's work in rounds, and prints a line of JSON for each sample.

#include "tests/Soak/Board.h"
#include "tests/Soak/Sampling.h"
#include "tests/Soak/Traffic.h"
#include "tests/Support/Integration/AgentLibrary.h"

#include <functional>
#include <string>
#include <vector>

namespace Torvane::Soak
{
/// Threads that live as long as the object, and do the same work when they are asked to. Used by one thread.
class Workers
{
public:
    explicit Workers(uint32_t count);
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// Every thread calls `function` with its number, below `count`. \return when all have returned.
    void Run(const std::function<void(uint32_t thread)>& function)
    {
        Start(function);
        Wait();
    }

    /// The two halves of `Run`.
    void Start(const std::function<void(uint32_t thread)>& function);
    void Wait();

private:
    struct Worker
    {
        Workers* owner;
        uint32_t number;
        HANDLE begin;
        HANDLE end;
        HANDLE thread;
    };

    static unsigned __stdcall Work(void* context);

    std::vector<Worker> workers;
    std::function<void(uint32_t)> work;
    bool ending = false;
};

/// What the campaigns have; used by the main thread, but for the library's functions and the board.
class Session
{
public:
    Session(const char* itsCampaign, uint32_t seed, AgentKind kind, double seconds,
            const std::string& boardPath, const std::string& folder);

    /// Loads and starts the Agent and waits for the connection. Does nothing for the control.
    void Connect();

    /// The two halves of `Connect`; the second returns the connection's status.
    void Start();
    TvnConnectionStatus AwaitConnection();

    /// Shuts the Agent down and frees the library.
    void Disconnect();

    bool HasAgent() const
    {
        return board->kind != AgentKind::None;
    }

    /// Whether there is time for another round, and nothing has failed.
    bool Continues() const
    {
        return Now() < end && board->faults == 0;
    }

    /// A sample after so many rounds.
    void Report(uint32_t rounds);

    /// Waits until `isDone`; fails with these words after the limit, in seconds.
    bool Await(const char* what, const std::function<bool()>& isDone, double limit = 45) const;

    Sample Take() const
    {
        return TakeSample(blocks, logPath);
    }

    const std::string campaign;
    Board board;
    Testing::AgentLibrary agent;
    std::wstring logPath;

private:
    static void TVN_CALL TakeStatus(void* context, TvnConnectionStatus status);

    double end;
    AgentBlocks blocks;
    HANDLE connected;
    volatile LONG status = -1;
};

/// Threads that send what `MakeItem` gives, each from its first sequence number on.
class Senders
{
public:
    explicit Senders(Session& itsSession)
        : session(itsSession)
    {
    }

    /// Called by a thread: sends its next items. In the campaigns "loss", "reordering", "corruption" and "hang" one of
    /// them does what its name says: they show that the soak finds it.
    void Send(uint32_t thread, uint32_t count);

    /// Waits until the Bridge has received everything that was sent. False, with a fault, if something is missing.
    bool AwaitReceived();

private:
    void SendItem(const Item& item);

    /// Changes which item comes next, or that item.
    void Spoil(uint32_t& sequence, Item& item);

    Session& session;
    uint32_t next[workerCount] = {};
};

void RunReloads(Session& session);
void RunTraffic(Session& session);
void RunModules(Session& session);
void RunExceptions(Session& session);
void RunLife(Session& session);
} // namespace Torvane::Soak
