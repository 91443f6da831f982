// The host of the benchmarks that need processes: --benchmark=N [--rounds=N] [--quick]. Prints a line of JSON for each
// value.
#include "HostAgent.h"
#include "HostBenchmarks.h"
#include "Relay.h"

#include <stdlib.h>
#include <string.h>

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
} // namespace

int main(int count, char** arguments)
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    Board board(GetCurrentProcessId());
    board->rounds = 1;
    for (int i = 1; i < count; ++i)
    {
        if (strncmp(arguments[i], "--benchmark=", 12) == 0)
        {
            board->benchmark = static_cast<uint32_t>(atoi(arguments[i] + 12));
        }
        else if (strncmp(arguments[i], "--rounds=", 9) == 0)
        {
            board->rounds = static_cast<uint32_t>(atoi(arguments[i] + 9));
        }
        else if (strcmp(arguments[i], "--quick") == 0)
        {
            board->quick = 1;
        }
    }
    if (board->benchmark == 0)
    {
        Fail("usage: ProcessBenchmarks --benchmark=N [--rounds=N] [--quick]");
    }
    if (board->benchmark == 10)
    {
        MeasureStartup(board);
    }
    else
    {
        RunWithBridge(board);
    }
    fwrite(board->lines, 1, board->linesSize, stdout);
    fflush(stdout);
    _exit(0); // threads of the relay may still wait
}
