// The host of the benchmarks that need processes: --benchmark=N [--rounds=N] [--quick]. Prints a line of JSON for each
// value.
#include "HostAgent.h"
#include "HostBenchmarks.h"
#include "Relay.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace
{
using namespace Torvane::Benchmarks;

constexpr uint32_t dataSize = 64 << 20;

/// What the host does for a benchmark; each part may be missing. Benchmarks that the Bridge measures alone have no row.
struct Row
{
    uint32_t benchmark;
    HostBenchmark prepare; ///< before the Agent starts
    HostBenchmark run;     ///< once it is connected
    HostBenchmark clearUp; ///< after the Agent's shutdown
};

constexpr Row rows[] = {
    {3, PrepareBursts, SendBursts, nullptr},
    {8, nullptr, MeasureModules, nullptr},
    {9, WritePatches, nullptr, DeletePatches},
    {11, nullptr, MeasureExceptions, nullptr},
};

void CallRow(HostBenchmark Row::*function, Board& board, TvnDefaultAgent& agent)
{
    for (const Row& row : rows)
    {
        if (row.benchmark == board->benchmark && row.*function != nullptr)
        {
            (row.*function)(board, agent);
        }
    }
}

void RunWithBridge(Board& board)
{
    void* data = VirtualAlloc(nullptr, dataSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    memset(data, 1, dataSize);
    board->data = reinterpret_cast<uintptr_t>(data);
    board->dataSize = dataSize;
    StartRelay(static_cast<uint8_t*>(data), dataSize);
    HostAgent agent;
    agent.Load();
    CallRow(&Row::prepare, board, agent.calls);
    agent.Start();
    agent.WaitForConnection();
    CallRow(&Row::run, board, agent.calls);
    while (board->bridgeDone == 0)
    {
        Sleep(1);
    }
    agent.Shutdown();
    CallRow(&Row::clearUp, board, agent.calls);
}
/// \return the number after an option's name and `=`; `otherwise` without the option.
uint32_t Option(int count, char** arguments, const std::string& name, uint32_t otherwise)
{
    const std::string start = name + "=";
    for (int i = 1; i < count; ++i)
    {
        if (strncmp(arguments[i], start.c_str(), start.size()) == 0)
        {
            return static_cast<uint32_t>(atoi(arguments[i] + start.size()));
        }
    }
    return otherwise;
}

bool HasOption(int count, char** arguments, const char* name)
{
    return std::any_of(arguments + 1, arguments + count,
                       [name](const char* argument) { return strcmp(argument, name) == 0; });
}

void Run(Board& board)
{
    switch (board->benchmark)
    {
    case 0:
        Fail("usage: ProcessBenchmarks --benchmark=N [--rounds=N] [--quick] [--synchronized]");
    case 10:
        return MeasureStartup(board);
    case 13:
        return HostReloads(board);
    default:
        return RunWithBridge(board);
    }
}
} // namespace

int main(int count, char** arguments)
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    if (const uint32_t host = Option(count, arguments, "--restarted", 0))
    {
        Board board(host);
        HostRestarted(board, Option(count, arguments, "--state", 1));
        _exit(0);
    }
    Board board(GetCurrentProcessId());
    board->benchmark = Option(count, arguments, "--benchmark", 0);
    board->rounds = Option(count, arguments, "--rounds", 1);
    board->quick = HasOption(count, arguments, "--quick") ? 1 : 0;
    board->synchronized = HasOption(count, arguments, "--synchronized") ? 1 : 0;
    if (const uint32_t bridge = Option(count, arguments, "--bare", 0))
    {
        HostBareReloads(board, bridge);
        _exit(0);
    }
    Run(board);
    fwrite(board->lines, 1, board->linesSize, stdout);
    fflush(stdout);
    _exit(0); // threads of the relay may still wait
}
