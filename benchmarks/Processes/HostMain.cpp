// The host of the benchmarks that need processes: --figure=N [--rounds=N] [--quick]. Prints a line of JSON for each
// value.
#include "HostAgent.h"
#include "HostFigures.h"
#include "Relay.h"

#include <stdlib.h>
#include <string.h>

namespace
{
using namespace Torvane::Benchmarks;

constexpr uint32_t dataSize = 64 << 20;

/// What the host does for a figure, each part of which may be missing. Figures that the Bridge measures alone have no
/// row.
struct Row
{
    uint32_t figure;
    HostFigure prepare; ///< before the Agent starts
    HostFigure run;     ///< once it is connected
    HostFigure clearUp; ///< after the Agent's shutdown
};

constexpr Row rows[] = {
    {3, PrepareBursts, SendBursts, nullptr},
    {8, nullptr, MeasureModules, nullptr},
    {9, WritePatches, nullptr, DeletePatches},
    {11, nullptr, MeasureExceptions, nullptr},
};

void CallRow(HostFigure Row::*function, Board& board, TvnDefaultAgent& agent)
{
    for (const Row& row : rows)
    {
        if (row.figure == board->figure && row.*function != nullptr)
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
        if (strncmp(arguments[i], "--figure=", 9) == 0)
        {
            board->figure = static_cast<uint32_t>(atoi(arguments[i] + 9));
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
    if (board->figure == 0)
    {
        Fail("usage: ProcessBenchmarks --figure=N [--rounds=N] [--quick]");
    }
    if (board->figure == 10)
    {
        MeasureStartup(board);
    }
    else
    {
        RunWithBridge(board);
    }
    fwrite(board->text, 1, board->textSize, stdout);
    fflush(stdout);
    _exit(0); // threads of the relay may still wait
}
