// SoakHost CAMPAIGN AGENT SECONDS SEED LIFETIME BOARD FOLDER
#include "tests/Soak/Host.h"
#include "tests/Support/Integration/AgentLog.h"

#include <process.h>
#include <stdlib.h>

namespace Torvane::Soak
{
Workers::Workers(uint32_t count)
    : workers(count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        workers[i] = {this, i, CreateEventW(nullptr, FALSE, FALSE, nullptr),
                      CreateEventW(nullptr, FALSE, FALSE, nullptr), nullptr};
        workers[i].thread =
            reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Workers::Work, &workers[i], 0, nullptr));
    }
}

Workers::~Workers()
{
    ending = true;
    for (const Worker& worker : workers)
    {
        SetEvent(worker.begin);
        WaitForSingleObject(worker.thread, INFINITE);
        for (const HANDLE handle : {worker.begin, worker.end, worker.thread})
        {
            CloseHandle(handle);
        }
    }
}

void Workers::Start(const std::function<void(uint32_t)>& function)
{
    work = function;
    for (const Worker& worker : workers)
    {
        SetEvent(worker.begin);
    }
}

void Workers::Wait()
{
    for (const Worker& worker : workers)
    {
        WaitForSingleObject(worker.end, INFINITE);
    }
}

unsigned __stdcall Workers::Work(void* context)
{
    const Worker& worker = *static_cast<const Worker*>(context);
    for (;;)
    {
        WaitForSingleObject(worker.begin, INFINITE);
        if (worker.owner->ending)
        {
            return 0;
        }
        worker.owner->work(worker.number);
        SetEvent(worker.end);
    }
}

Session::Session(const char* itsCampaign, uint32_t seed, AgentKind kind, double seconds,
                 const std::string& boardPath, const std::string& folder)
    : campaign(itsCampaign)
    , board(GetCurrentProcessId(), boardPath)
    , logPath(Testing::AgentLogPath(GetCurrentProcessId()))
    , end(Now() + seconds)
    , connected(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
    board->seed = seed;
    board->kind = kind;
    std::wstring(folder.begin(), folder.end()).copy(board->folder, 259);
    (Testing::ExecutableFolder() + L"\\SoakPatch.dll").copy(board->patch, 259);
}

void TVN_CALL Session::TakeStatus(void* context, TvnConnectionStatus status)
{
    Session& session = *static_cast<Session*>(context);
    InterlockedExchange(&session.status, status);
    SetEvent(session.connected);
}

void Session::Start()
{
    const std::string missing =
        agent.Load(board->folder + (L"\\agent\\x86\\" + std::wstring(Testing::agentFileName)));
    if (!missing.empty())
    {
        board.Fail("%s", missing.c_str());
        return;
    }
    TvnDefaultAgent defaultAgent = {};
    TvnSynchronizedAgent synchronizedAgent = {};
    if (board->kind == AgentKind::Default)
    {
        agent.TvnStartupDefaultAgent(&defaultAgent, nullptr, nullptr, nullptr);
    }
    else
    {
        agent.TvnStartupSynchronizedAgent(&synchronizedAgent, nullptr, nullptr, nullptr);
    }
    if (!blocks.Find(agent.Module()))
    {
        board.Fail("the Agent's pools and heaps weren't found");
    }
}

TvnConnectionStatus Session::AwaitConnection()
{
    agent.TvnOnConnection(this, &TakeStatus);
    WaitForSingleObject(connected, INFINITE);
    return static_cast<TvnConnectionStatus>(status);
}

void Session::Connect()
{
    if (HasAgent() && board->faults == 0)
    {
        board.Enter(mainThread, "connecting");
        Start();
        if (board->faults == 0 && AwaitConnection() != ConnectionSucceeded)
        {
            board.Fail("no connection, status %ld", status);
        }
    }
}

void Session::Disconnect()
{
    if (agent.Module() == nullptr)
    {
        return;
    }
    board.Enter(mainThread, "in TvnShutdown");
    agent.TvnShutdown();
    blocks = AgentBlocks();
    agent.Unload();
    board.Enter(mainThread, "after TvnShutdown");
}

void Session::Report(uint32_t rounds)
{
    const Sample sample = Take();
    printf("{\"rounds\": %u, \"time\": %.4f, \"handles\": %u, \"threads\": %u, \"private\": %llu, "
           "\"address\": %llu, "
           "\"blocks\": %d, \"log\": %llu, \"blobs\": %ld, \"watchdog\": %ld}\n",
           rounds, sample.time, sample.handles, sample.threads, sample.privateBytes, sample.addressSpace,
           sample.blocks, sample.logBytes, board->blobs, board->watchdog);
    fflush(stdout);
}

bool Session::Await(const char* what, const std::function<bool()>& isDone, double limit) const
{
    board.Enter(mainThread, what);
    const double last = Now() + limit;
    while (!isDone())
    {
        if (Now() > last)
        {
            return board.Fail("timed out: waited %s", what);
        }
        if (board->faults != 0)
        {
            return false;
        }
        Sleep(1);
    }
    return true;
}

void Senders::SendItem(const Item& item)
{
    const Testing::AgentLibrary& agent = session.agent;
    switch (item.kind)
    {
    case ItemKind::LogNarrow:
        agent.TvnLogMessageANSI(item.text.c_str());
        break;
    case ItemKind::LogWide:
        agent.TvnLogMessage(std::wstring(item.text.begin(), item.text.end()).c_str());
        break;
    case ItemKind::Bool:
        agent.TvnSetBoolPreferences(item.preference, (item.hash >> 9 & 1) != 0);
        break;
    case ItemKind::Int:
        agent.TvnSetIntPreferences(item.preference, static_cast<int32_t>(item.hash));
        break;
    case ItemKind::String:
        agent.TvnSetStringPreferences(item.preference, item.text.c_str());
        break;
    case ItemKind::Shortcut:
        agent.TvnSetShortcutPreferences(item.preference, item.hash, ~item.hash);
        break;
    }
}

void Senders::Spoil(uint32_t& sequence, Item& item)
{
    const uint32_t thread = item.preference >> 24;
    if (session.campaign == "loss" && sequence == 300)
    {
        item = MakeItem(GetCurrentProcessId(), thread, ++sequence);
    }
    else if (session.campaign == "reordering" && (sequence == 300 || sequence == 301))
    {
        item = MakeItem(GetCurrentProcessId(), thread, 601 - sequence);
    }
    else if (session.campaign == "corruption" && sequence >= 300)
    {
        ++item.hash;
        item.text.back() ^= 1;
    }
    else if (session.campaign == "hang" && sequence == 300)
    {
        Sleep(INFINITE);
    }
}

void Senders::Send(uint32_t thread, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        Item item = MakeItem(GetCurrentProcessId(), thread, next[thread]);
        if (thread == 3)
        {
            Spoil(next[thread], item);
        }
        ++next[thread];
        if (session.HasAgent())
        {
            SendItem(item);
        }
    }
}

bool Senders::AwaitReceived()
{
    for (uint32_t thread = 0; thread < workerCount && session.HasAgent(); ++thread)
    {
        if (!session.Await("until the Bridge has received everything", [&] {
                return static_cast<uint32_t>(session.board->received[thread]) == next[thread];
            }))
        {
            return session.board.Fail("lost: thread %u has sent %u items, received are %ld", thread,
                                      next[thread], session.board->received[thread]);
        }
    }
    return true;
}
} // namespace Torvane::Soak

namespace
{
using namespace Torvane::Soak;

struct Campaign
{
    const char* name;
    void (*run)(Session& session);
};

constexpr Campaign campaigns[] = {
    {"reloads", &RunReloads},
    {"traffic", &RunTraffic},
    {"many-hosts", &RunTraffic},
    {"modules", &RunModules},
    {"exceptions", &RunExceptions},
    {"bridge-deaths", &RunLife},
    {"lives", &RunLife},
    // What the soak has to find.
    {"loss", &RunTraffic},
    {"reordering", &RunTraffic},
    {"corruption", &RunTraffic},
    {"hang", &RunTraffic},
    {"leak", &RunTraffic},
    {"crash", &RunTraffic},
};
constexpr const char* kinds[] = {"default", "compile", "load", "none"};

const Board* crashBoard;

/// No debugger is asked for, which would keep the process until somebody comes.
LONG WINAPI EndCrashed(EXCEPTION_POINTERS* exception)
{
    crashBoard->Fail("the host has crashed: exception 0x%08lX at 0x%p",
                     exception->ExceptionRecord->ExceptionCode, exception->ExceptionRecord->ExceptionAddress);
    TerminateProcess(GetCurrentProcess(), 87);
    return EXCEPTION_EXECUTE_HANDLER;
}

AgentKind KindNamed(const std::string& name)
{
    uint32_t kind = 0;
    while (kind < 3 && name != kinds[kind])
    {
        ++kind;
    }
    return static_cast<AgentKind>(kind);
}
} // namespace

int main(int count, char** arguments)
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetUnhandledExceptionFilter(&EndCrashed);
    if (count != 8)
    {
        fprintf(stderr, "usage: SoakHost CAMPAIGN AGENT SECONDS SEED LIFETIME BOARD FOLDER\n");
        return 2;
    }
    Session session(arguments[1], static_cast<uint32_t>(strtoul(arguments[4], nullptr, 10)),
                    KindNamed(arguments[2]), atof(arguments[3]), arguments[6], arguments[7]);
    crashBoard = &session.board;
    session.board->lifeTime = static_cast<uint32_t>(strtoul(arguments[5], nullptr, 10));
    for (const Campaign& campaign : campaigns)
    {
        if (strcmp(campaign.name, arguments[1]) == 0)
        {
            campaign.run(session);
            DeleteFileW(session.logPath.c_str());
            if (session.board->faults == 0)
            {
                printf("{\"end\": true}\n");
            }
            fflush(stdout);
            return session.board->faults == 0 ? 0 : 1;
        }
    }
    fprintf(stderr, "no campaign is named %s\n", arguments[1]);
    return 2;
}
