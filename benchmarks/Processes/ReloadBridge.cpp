// Benchmark 13: whole reloads by the Bridge kit, and the same calls of the OS between two bare programs, in turns.
#include "BareReload.h"

#include "bridge/Reload.h"
#include "bridge/Requests.h"
#include "bridge/Route.h"

#include "../Support/CallCounter.h"
#include "../Support/Count.h"
#include "../Support/Stopwatch.h"

#include <functional>

namespace Torvane::Benchmarks
{
namespace
{
constexpr uint32_t limit = 60000; // milliseconds

/// When a thread of a host was first suspended, and when the last one was resumed, in seconds.
struct
{
    decltype(&SuspendThread) suspend;
    decltype(&ResumeThread) resume;
    double begin;
    double end;
} pause;

DWORD WINAPI SuspendThreadAndNote(HANDLE thread)
{
    if (pause.begin == 0)
    {
        pause.begin = Now();
    }
    return pause.suspend(thread);
}

DWORD WINAPI ResumeThreadAndNote(HANDLE thread)
{
    const DWORD count = pause.resume(thread);
    pause.end = Now();
    return count;
}

/// Both sides' calls go the same way.
void WatchPauses()
{
    pause.suspend = ReplaceImport(GetModuleHandleW(nullptr), "SuspendThread", &SuspendThreadAndNote);
    pause.resume = ReplaceImport(GetModuleHandleW(nullptr), "ResumeThread", &ResumeThreadAndNote);
    if (pause.suspend == nullptr || pause.resume == nullptr)
    {
        Fail("The Bridge doesn't suspend threads");
    }
}

void SetThreads(Board& board, uint32_t count, bool atWork, bool addsCalls = false)
{
    board->threads = static_cast<LONG>(count);
    board->atWork = atWork ? 1 : 0;
    board->addsCalls = addsCalls ? 1 : 0;
    const LONG request = InterlockedIncrement(&board->requested);
    while (board->executed != request)
    {
        Sleep(1);
    }
}

/// A host that this Bridge starts, which ends with it.
class StartedHost
{
public:
    StartedHost(const std::wstring& program, const std::wstring& arguments)
    {
        std::wstring commandLine = L"\"" + program + L"\" " + arguments;
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                            nullptr, nullptr, &startup, &started))
        {
            Fail("A host can't be started");
        }
    }

    ~StartedHost()
    {
        TerminateProcess(started.hProcess, 0);
        WaitForSingleObject(started.hProcess, INFINITE);
        CloseHandle(started.hProcess);
        CloseHandle(started.hThread);
    }

    StartedHost(const StartedHost&) = delete;
    StartedHost& operator=(const StartedHost&) = delete;

    uint32_t Id() const
    {
        return started.dwProcessId;
    }

private:
    PROCESS_INFORMATION started = {};
};

/// Runs what is to be measured.
using Runner = std::function<void(const std::function<void()>& reload)>;

struct Times
{
    std::vector<double> pause; ///< seconds
    std::vector<double> whole;

    Runner Measure()
    {
        return [this](const std::function<void()>& reload) {
            Torvane::Benchmarks::pause.begin = 0;
            whole.push_back(Torvane::Benchmarks::Measure(reload));
            pause.push_back(Torvane::Benchmarks::pause.end - Torvane::Benchmarks::pause.begin);
        };
    }
};

class ReloadBenchmark
{
public:
    explicit ReloadBenchmark(Board& itsBoard);
    void Run();

private:
    void Check(const Bridge::Result<>& result) const;
    void CheckRouted(uint32_t processId, uint64_t function) const;
    void ReloadByKit(const ReloadCase& reloadCase, const Runner& run);
    void ReloadBare(const ReloadCase& reloadCase, const ReloadCalls& calls, const Runner& run);

    /// \param names of the cases, one for each curve that this is a point of.
    void Measure(const ReloadCase& reloadCase, const std::vector<std::string>& names);
    void MeasureGrowth();
    void CountCalls();
    void MeasureRestarts(const std::string& name);
    std::wstring SynchronizedOption() const
    {
        return session.IsSynchronized() ? L" --synchronized" : L"";
    }

    Board& board;
    CallCounter calls;
    uint32_t heartbeatThread = 0; ///< the Agent's
    Bridge::Link link;
    Bridge::Session session;
    std::wstring program; ///< the hosts'
    StartedHost bareHost;
    Board bareBoard;
    std::optional<BareReload> bare;
};

ReloadBenchmark::ReloadBenchmark(Board& itsBoard)
    : board(itsBoard)
    , calls(GetModuleHandleW(nullptr))
    , link(Bridge::HostProcessIdFromCommandLine())
    , session(link)
    , program(session.host.ExecutablePath())
    , bareHost(program, L"--benchmark=13 --bare=" + std::to_wstring(GetCurrentProcessId()) +
                            (itsBoard->synchronized != 0 ? L" --synchronized" : L""))
    , bareBoard(bareHost.Id())
{
    link.Observe([this](const Bridge::Message& message) {
        if (message.Type() == BlobType::RegisterProcess && message.As<RegisterProcessBlob>() != nullptr)
        {
            heartbeatThread = message.As<RegisterProcessBlob>()->heartbeatThreadId;
        }
    });
    Check(session.Connect(limit));
    SetThreads(bareBoard, 1, false); // its functions and relay are there then
    bare.emplace(bareHost.Id(), bareBoard);
}

void ReloadBenchmark::Check(const Bridge::Result<>& result) const
{
    if (!result)
    {
        Fail(result.Reason().c_str());
    }
}

/// A benchmark of jumps that aren't there would be fast.
void ReloadBenchmark::CheckRouted(uint32_t processId, uint64_t function) const
{
    const std::vector<uint8_t> code = Bridge::HostProcess(processId).Read(function, Bridge::jumpSize);
    if (code.empty() || code[0] != 0xE9)
    {
        Fail("A function isn't routed");
    }
}

void ReloadBenchmark::ReloadByKit(const ReloadCase& reloadCase, const Runner& run)
{
    const std::wstring path = ReloadPatchPath(board, reloadCase.patchSize);
    std::vector<Bridge::RoutedFunction> routed;
    uint64_t base = 0;
    Bridge::ReloadSteps steps;
    steps.build = [&]() -> Bridge::Result<std::wstring> {
        return path;
    };
    steps.install = [&](const Bridge::LoadedPatch& patch) -> Bridge::Result<> {
        base = patch.Base();
        std::vector<Bridge::Redirection> functions;
        for (uint32_t i = 0; i < reloadCase.functions; ++i)
        {
            functions.push_back(
                {board->functions + i * functionDistance, base + targetsRva + i * targetDistance});
        }
        const auto result = Bridge::Route(session, functions, limit);
        if (!result)
        {
            return result.Why();
        }
        routed = *result;
        return Bridge::SendCallEntryPoint(session, patch) ? Bridge::Result<>() : Bridge::ClosedPipe();
    };
    SetThreads(board, reloadCase.threads, true);
    run([&] { Check(Bridge::RunReload(session, steps, limit)); });
    CheckRouted(session.host.Id(), board->functions + (reloadCase.functions - 1) * functionDistance);
    SetThreads(board, reloadCase.threads, false);
    Check(session.SuspendThreads());
    Check(Bridge::Undo(session, routed, limit));
    session.ResumeThreads();
    Bridge::SendUnloadPatch(link, base);
    Check(Bridge::Fence(link, limit));
}

void ReloadBenchmark::ReloadBare(const ReloadCase& reloadCase, const ReloadCalls& calls, const Runner& run)
{
    const std::wstring path = ReloadPatchPath(board, reloadCase.patchSize);
    SetThreads(bareBoard, reloadCase.threads, true);
    run([&] { bare->Run(reloadCase, path, session.IsSynchronized(), calls); });
    CheckRouted(bareHost.Id(), bareBoard->functions + (reloadCase.functions - 1) * functionDistance);
    SetThreads(bareBoard, reloadCase.threads, false);
    bare->Undo(reloadCase);
}

void ReloadBenchmark::Measure(const ReloadCase& reloadCase, const std::vector<std::string>& names)
{
    const uint32_t count = board.IsQuick() || reloadCase.functions == mostFunctions ? 1 : 3;
    Times ours;
    Times same;
    Times fewest;
    for (uint32_t i = 0; i < count; ++i)
    {
        ReloadByKit(reloadCase, ours.Measure());
        ReloadBare(reloadCase, sameCalls, same.Measure());
        ReloadBare(reloadCase, fewestCalls, fewest.Measure());
    }
    for (const std::string& name : names)
    {
        for (const auto& [side, times] :
             {std::pair("ours", &ours), std::pair("same calls", &same), std::pair("fewest calls", &fewest)})
        {
            board.Add(name + ", pause", side, Quantile(times->pause, 0.5));
            board.Add(name + ", in all", side, Quantile(times->whole, 0.5));
        }
    }
}

/// From the end of a host until another one is where it was.
void ReloadBenchmark::MeasureRestarts(const std::string& name)
{
    const HANDLE restarted = OpenRestarted(GetCurrentProcessId());
    for (const uint32_t megabytes : stateSizes)
    {
        if (board.IsQuick() && megabytes != stateSizes[0])
        {
            continue;
        }
        const std::wstring arguments =
            L"--restarted=" + std::to_wstring(session.host.Id()) + L" --state=" + std::to_wstring(megabytes);
        std::optional<StartedHost> host(std::in_place, program, arguments);
        WaitForSingleObject(restarted, INFINITE);
        board.Add(name + ", in all", ("restart with " + std::to_string(megabytes) + " MB").c_str(),
                  Torvane::Benchmarks::Measure([&] {
                      host.reset();
                      host.emplace(program, arguments);
                      WaitForSingleObject(restarted, INFINITE);
                  }));
    }
    CloseHandle(restarted);
}

/// One number at a time. A quick run leaves out the largest ones.
void ReloadBenchmark::MeasureGrowth()
{
    const bool isQuick = board.IsQuick();
    for (const uint32_t functions : {1, 100, 1000})
    {
        if (!isQuick || functions < 1000)
        {
            Measure({8, functions}, {Count(functions, "function")});
        }
    }
    for (const uint32_t size : {16u << 10, 4u << 20, 16u << 20})
    {
        if (!isQuick || size < 16 << 20)
        {
            Measure({8, 10, size}, {size < 1 << 20 ? std::to_string(size >> 10) + " KB"
                                                   : std::to_string(size >> 20) + " MB"});
        }
    }
    for (const uint32_t threads : {1, 32, 64})
    {
        if (!isQuick || threads < 64)
        {
            Measure({threads}, {Count(threads, "thread")});
        }
    }
}

/// Some more reloads, in whose least counts nothing else is left: a busy machine lets the Bridge suspend threads again.
/// The heartbeat isn't part of a reload.
void ReloadBenchmark::CountCalls()
{
    constexpr uint32_t reloads = 3;
    const HANDLE heartbeat = OpenThread(THREAD_SUSPEND_RESUME, FALSE, heartbeatThread);
    const auto countFor = [&](Board& host, const char* side) -> Runner {
        return [&, side](const std::function<void()>& reload) {
            const uint32_t threads = ReloadCase().threads;
            SetThreads(host, threads, true);
            pause.suspend(heartbeat);
            calls.Reset();
            reload();
            const std::map<std::string, uint32_t> counts = calls.Counts();
            SetThreads(host, threads, true, true);
            pause.resume(heartbeat);
            for (const auto& [name, count] : counts)
            {
                board.AddCalls("Bridge", side, name, count);
            }
        };
    };
    for (uint32_t i = 0; i < reloads; ++i)
    {
        ReloadByKit({}, countFor(board, "ours"));
        ReloadBare({}, sameCalls, countFor(bareBoard, "same calls"));
    }
    CloseHandle(heartbeat);
    board.AddLine("%s", bareBoard->lines);
}

void ReloadBenchmark::Run()
{
    const bool synchronized = session.IsSynchronized();
    const std::string base = synchronized ? "synchronized agent" : "default agent";
    Times ignored;
    ReloadByKit({}, ignored.Measure()); // starts the process that guards suspended threads
    ReloadBare({}, sameCalls, ignored.Measure());
    for (uint32_t round = 0; round < board->rounds; ++round)
    {
        Measure({}, synchronized ? std::vector<std::string>{base}
                                 : std::vector<std::string>{base, "8 threads", "10 functions", "256 KB"});
        MeasureRestarts(base);
        if (!synchronized)
        {
            MeasureGrowth();
            board->keepsAddress = 1;
            Measure({}, {"Agent's address on a stack"});
            board->keepsAddress = 0;
        }
    }
    if (!synchronized) // whose host polls in between
    {
        CountCalls();
    }
    InterlockedExchange(&board->bridgeDone, 1);
    link.WaitUntilClosed(limit);
}
} // namespace

void MeasureReloads(Board& board)
{
    WatchPauses();
    ReloadBenchmark(board).Run();
}
} // namespace Torvane::Benchmarks
