// Benchmark 10: what an Agent costs at its start, at its end and while it is idle.
#include "Agent/Protocol/Names.h"
#include "HostAgent.h"
#include "HostBenchmarks.h"
#include "Relay.h"

#include "../Support/Stopwatch.h"

#include <psapi.h>

namespace Torvane::Benchmarks
{
namespace
{
/// Private memory of this process, in bytes.
struct Memory
{
    double committed = 0;
    double reserved = 0; ///< committed or not
    double resident = 0; ///< of all kinds, files and images, too
};

Memory QueryMemory()
{
    Memory memory;
    MEMORY_BASIC_INFORMATION pages = {};
    for (const char* next = nullptr; VirtualQuery(next, &pages, sizeof(pages)) == sizeof(pages);
         next = static_cast<const char*>(pages.BaseAddress) + pages.RegionSize)
    {
        const bool committed = pages.State == MEM_COMMIT;
        const bool reserved =
            pages.State == MEM_RESERVE && pages.Protect == 0; // otherwise Wine's own reserves
        if (pages.Type == MEM_PRIVATE && (committed || reserved))
        {
            memory.committed += committed ? pages.RegionSize : 0;
            memory.reserved += pages.RegionSize;
        }
    }
    PROCESS_MEMORY_COUNTERS counters = {};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    memory.resident = counters.WorkingSetSize;
    return memory;
}

/// Seconds on a processor, of all threads.
double ProcessorTime()
{
    FILETIME ignored;
    ULARGE_INTEGER kernel;
    ULARGE_INTEGER user;
    GetProcessTimes(GetCurrentProcess(), &ignored, &ignored, reinterpret_cast<FILETIME*>(&kernel),
                    reinterpret_cast<FILETIME*>(&user));
    return static_cast<double>(kernel.QuadPart + user.QuadPart) * 1e-7;
}

void WaitForBridge(Board& board)
{
    const HANDLE bridge = OpenProcess(SYNCHRONIZE, FALSE, board->bridgeProcessId);
    if (bridge != nullptr)
    {
        WaitForSingleObject(bridge, INFINITE);
        CloseHandle(bridge);
    }
}

void Connect(HostAgent& agent)
{
    agent.Load();
    agent.Start();
    agent.WaitForConnection();
}

void Disconnect(Board& board, HostAgent& agent)
{
    agent.Shutdown();
    agent.Unload();
    WaitForBridge(board);
}

void AddSizes(Board& board)
{
    const Memory before = QueryMemory();
    HostAgent agent;
    Connect(agent);
    const Memory after = QueryMemory();
    board.Add("committed memory", "ours", after.committed - before.committed);
    board.Add("reserved memory", "ours", after.reserved - before.reserved);
    board.Add("resident memory", "ours", after.resident - before.resident);

    MODULEINFO module = {};
    K32GetModuleInformation(GetCurrentProcess(), agent.library, &module, sizeof(module));
    board.Add("the library's image", "ours", module.SizeOfImage);
    WIN32_FILE_ATTRIBUTE_DATA file = {};
    GetFileAttributesExW((HostAgent::Folder() + L"TVN_Agent_x86.dll").c_str(), GetFileExInfoStandard, &file);
    board.Add("the library's file", "ours", file.nFileSizeLow);
    Disconnect(board, agent);
}

void AddStartup(Board& board)
{
    HostAgent agent;
    agent.Load();
    const double begin = Now();
    agent.Start();
    const double started = Now();
    agent.WaitForConnection();
    const double connected = Now();
    const double shutdown = Measure([&] { agent.Shutdown(); });
    agent.Unload();
    board.Add("the startup call", "ours", started - begin);
    board.Add("until connected", "ours", connected - begin);
    board.Add("the shutdown call", "ours", shutdown);
    WaitForBridge(board);
}

/// The same program, started with the same arguments, until it has opened a pipe.
void AddBareStartup(Board& board)
{
    const DWORD host = GetCurrentProcessId();
    const std::wstring program = HostAgent::Folder() + bridgeFileName;
    std::wstring commandLine = std::to_wstring(host);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION bridge = {};
    board->bare = 1;
    const double begin = Now();
    Pipe pipe;
    pipe.Create(pingPongName, host);
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT, nullptr, nullptr, &startup, &bridge))
    {
        Fail("The Bridge can't be started");
    }
    const double started = Now();
    pipe.Accept();
    const double connected = Now();
    board.Add("the startup call", "Bridge by hand", started - begin);
    board.Add("until connected", "Bridge by hand", connected - begin);
    WaitForSingleObject(bridge.hProcess, INFINITE);
    CloseHandle(bridge.hThread);
    CloseHandle(bridge.hProcess);
    board->bare = 0;
}

/// The share of a core that a connected idle Agent uses. The OS counts in steps: at least one is reported.
void AddIdling(Board& board)
{
    constexpr double step = 0.01;                          // seconds
    const DWORD duration = board.IsQuick() ? 4000 : 60000; // milliseconds
    HostAgent agent;
    Connect(agent);
    Sleep(500); // the rest of the startup isn't idling
    const uint32_t rounds = board.IsQuick() ? 1 : 3;
    for (uint32_t round = 0; round < rounds; ++round)
    {
        const double before = ProcessorTime();
        const double elapsed = Measure([&] { Sleep(duration); });
        board.Add("idling", "ours", std::max(ProcessorTime() - before, step) / elapsed);
        board.Add("idling", "limit", 0.001);
    }
    Disconnect(board, agent);
}
} // namespace

void MeasureStartup(Board& board)
{
    AddSizes(board);
    for (uint32_t round = 0; round < board->rounds; ++round)
    {
        AddStartup(board);
        AddBareStartup(board);
    }
    AddIdling(board);
}
} // namespace Torvane::Benchmarks
