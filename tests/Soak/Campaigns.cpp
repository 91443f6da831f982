// Traffic, modules, and whole lives of an Agent.
#include "tests/Soak/Host.h"
#include "tests/Support/Modules.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/Utf8.h"

#include <memory>

namespace Torvane::Soak
{
namespace
{
/// What the Bridge reads while it receives.
uint8_t data[dataSize];

void FillData(Session& session)
{
    for (uint32_t i = 0; i < dataSize; ++i)
    {
        data[i] = DataAt(GetCurrentProcessId(), i);
    }
    session.board->data = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(data));
}

bool TVN_CALL KeepAll(void* context, const wchar_t*)
{
    InterlockedIncrement(static_cast<volatile LONG*>(context));
    return true;
}

/// The libraries of one thread: two that stay loaded, of which the first imports the second, and two that come and go.
class ModuleThread
{
public:
    ModuleThread(Session& itsSession, uint32_t thread)
        : session(itsSession)
        , libraries(L"soak" + std::to_wstring(thread))
        , number(std::to_string(thread))
    {
        for (const char* kind : {"Kept", "Passing"})
        {
            const std::string imported = kind + number + "B.dll";
            if (!libraries.Write(kind + number + "A.dll", {{imported.c_str()}}) || !libraries.Write(imported))
            {
                session.board.Fail("a library can't be written");
            }
        }
        // Before the Agent: they aren't handled automatically.
        if (libraries.Load("Kept" + number + "A.dll") == nullptr)
        {
            session.board.Fail("a library can't be loaded");
        }
    }

    /// Five modules that stay are enabled and five disabled; two that come and go.
    void Round()
    {
        const std::wstring path = libraries.PathOf("Kept" + number + "A.dll");
        const std::wstring imported = libraries.PathOf("Kept" + number + "B.dll");
        if (session.HasAgent())
        {
            const wchar_t* const both[] = {path.c_str(), imported.c_str()};
            const Testing::AgentLibrary& agent = session.agent;
            agent.TvnEnableModule(path.c_str(), IncludeImports, nullptr, nullptr);
            agent.TvnDisableModules(both, 2, ExactlyTheseModules, const_cast<LONG*>(&asked), &KeepAll);
            agent.TvnEnableModules(both, 2, ExactlyTheseModules, const_cast<LONG*>(&asked), &KeepAll);
            agent.TvnDisableModule(path.c_str(), IncludeImports, nullptr, nullptr);
            agent.TvnEnableModuleANSI(Testing::Utf8(path).c_str(), ExactlyTheseModules, nullptr, nullptr);
            agent.TvnDisableModuleANSI(Testing::Utf8(path).c_str(), ExactlyTheseModules, nullptr, nullptr);
        }
        const HMODULE passing = LoadLibraryExW(libraries.PathOf("Passing" + number + "A.dll").c_str(),
                                               nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (passing == nullptr)
        {
            session.board.Fail("a library can't be loaded");
        }
        FreeLibrary(passing);
    }

private:
    Session& session;
    Testing::TestLibraries libraries;
    std::string number;
    volatile LONG asked = 0;
};

/// Waits until the Bridge knows of that many modules. False, with a fault, if it does not.
bool AwaitModules(Session& session, uint32_t rounds)
{
    const LONG kept = static_cast<LONG>(rounds * 5);
    const LONG passing = static_cast<LONG>(rounds * 2);
    const bool received = session.Await("until the Bridge knows of all modules", [&] {
        return session.board->kept[0] == kept && session.board->kept[1] == kept &&
               session.board->passing[0] == passing;
    });
    return received ||
           session.board.Fail("modules are missing: %ld and %ld of %ld, %ld of %ld", session.board->kept[0],
                              session.board->kept[1], kept, session.board->passing[0], passing);
}

/// Calls of a host in a life; few enough to have room in the queue once nobody takes anything out of it.
void LiveOn(Session& session, Senders& senders, Workers& workers,
            std::vector<std::unique_ptr<ModuleThread>>& modules)
{
    workers.Run([&](uint32_t thread) {
        for (uint32_t i = 0; i < 9; ++i)
        {
            session.board.Enter(thread, "sending");
            senders.Send(thread, 20);
            if (i % 3 == 0)
            {
                session.board.Enter(thread, "enabling");
                modules[thread]->Round();
            }
            Sleep(Mix(session.board->seed, thread, i) % 20);
        }
        if (session.HasAgent())
        {
            session.board.Enter(thread, "scheduling");
            session.agent.TvnScheduleReload();
            if (session.board->kind != AgentKind::Default)
            {
                session.agent.TvnWantsRestart();
            }
        }
        session.board.Enter(thread, "done");
    });
}

void AwaitDeath(Session& session)
{
    if (!session.Await("until there is a Bridge", [&] { return session.board->bridgeProcessId != 0; }))
    {
        return;
    }
    session.board.Enter(mainThread, "until the Bridge is dead");
    const HANDLE bridge = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(session.board->bridgeProcessId));
    if (bridge != nullptr)
    {
        WaitForSingleObject(bridge, INFINITE);
        CloseHandle(bridge);
    }
}
} // namespace

void RunTraffic(Session& session)
{
    const uint32_t itemsPerRound = session.campaign == "traffic" ? 250 : 50; // of each thread
    FillData(session);
    Workers workers(workerCount);
    Senders senders(session);
    session.Connect();
    for (uint32_t round = 1; session.Continues(); ++round)
    {
        session.board.Enter(mainThread, "until all have sent");
        workers.Run([&](uint32_t thread) {
            session.board.Enter(thread, "sending");
            senders.Send(thread, itemsPerRound);
            session.board.Enter(thread, "has sent");
        });
        if (senders.AwaitReceived())
        {
            session.Report(round);
        }
        if (session.campaign == "leak")
        {
            CreateEventW(nullptr, FALSE, FALSE, nullptr);
        }
        else if (session.campaign == "crash" && round == 3)
        {
            *reinterpret_cast<volatile int*>(static_cast<uintptr_t>(16)) = 1;
        }
    }
    session.Disconnect();
}

void RunModules(Session& session)
{
    constexpr uint32_t threads = 4;
    constexpr uint32_t roundsPerSample = 1;
    std::vector<std::unique_ptr<ModuleThread>> modules;
    for (uint32_t i = 0; i < threads; ++i)
    {
        modules.push_back(std::make_unique<ModuleThread>(session, i));
    }
    Workers workers(threads);
    session.Connect();
    if (session.HasAgent() && session.board->faults == 0)
    {
        session.agent.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(nullptr, nullptr);
    }
    for (uint32_t round = roundsPerSample; session.Continues(); round += roundsPerSample)
    {
        session.board.Enter(mainThread, "until all have enabled");
        workers.Run([&](uint32_t thread) {
            for (uint32_t i = 0; i < roundsPerSample; ++i)
            {
                session.board.Enter(thread, "enabling and disabling");
                modules[thread]->Round();
            }
            session.board.Enter(thread, "done");
        });
        if (!session.HasAgent() || AwaitModules(session, round * threads))
        {
            session.Report(round);
        }
    }
    session.Disconnect();
}

void RunLife(Session& session)
{
    constexpr uint32_t threads = 4;
    std::vector<std::unique_ptr<ModuleThread>> modules;
    for (uint32_t i = 0; i < threads; ++i)
    {
        modules.push_back(std::make_unique<ModuleThread>(session, i));
    }
    FillData(session);
    Workers workers(threads);
    Senders senders(session);
    const Sample before = session.Take();
    double shutdown = 0;
    if (session.HasAgent())
    {
        session.Start();
        if (session.board->lifeTime == 0 && session.AwaitConnection() != ConnectionSucceeded)
        {
            session.board.Fail("no connection");
        }
    }
    LiveOn(session, senders, workers, modules);
    if (session.HasAgent() && session.board->lifeTime != 0)
    {
        AwaitDeath(session);
        LiveOn(session, senders, workers, modules);
    }
    else
    {
        senders.AwaitReceived();
    }
    if (session.HasAgent())
    {
        const double begin = Now();
        session.Disconnect();
        shutdown = Now() - begin;
    }
    const Sample after = session.Take();
    printf("{\"handles left\": %d, \"threads left\": %d, \"private left\": %lld, \"address left\": %lld, "
           "\"time\": %.4f, \"shutdown\": %.4f, \"blobs\": %ld}\n",
           static_cast<int>(after.handles - before.handles), static_cast<int>(after.threads - before.threads),
           static_cast<long long>(after.privateBytes - before.privateBytes),
           static_cast<long long>(after.addressSpace - before.addressSpace), after.time - before.time,
           shutdown, session.board->blobs);
    fflush(stdout);
}
} // namespace Torvane::Soak
