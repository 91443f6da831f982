// The Bridge of the benchmarks. For a benchmark without a row here it is the default Bridge.
#include "AgentLink.h"

#include "bridge/DefaultBridge.h"
#include "bridge/Link.h"

#include <process.h>

namespace
{
using namespace Torvane::Benchmarks;

struct Row
{
    uint32_t benchmark;
    BridgeBenchmark measure;
};

constexpr Row rows[] = {
    {1, MeasureEcho}, {2, MeasureMemory}, {3, ReceiveBursts}, {9, MeasurePatches}, {11, AnswerExceptions},
};

BridgeBenchmark FindBenchmark(uint32_t benchmark)
{
    for (const Row& row : rows)
    {
        if (row.benchmark == benchmark)
        {
            return row.measure;
        }
    }
    return nullptr;
}

/// The process ends with its host, whatever it is waiting for.
unsigned __stdcall EndWithHost(void* host)
{
    WaitForSingleObject(host, INFINITE);
    _exit(4);
}
} // namespace

int main()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const uint32_t host = Torvane::Bridge::HostProcessIdFromCommandLine();
    Board board(host);
    if (board->bare != 0)
    {
        Pipe().Open(pingPongName, host);
        return 0;
    }
    board->bridgeProcessId = static_cast<LONG>(GetCurrentProcessId());
    const BridgeBenchmark measure = FindBenchmark(board->benchmark);
    const bool usesKit = board->benchmark == 12 || board->benchmark == 13;
    if (measure == nullptr && !usesKit)
    {
        InterlockedExchange(&board->bridgeDone, 1);
        return Torvane::Bridge::RunDefaultBridge(host);
    }
    _beginthreadex(nullptr, 0, EndWithHost, OpenProcess(SYNCHRONIZE, FALSE, host), 0, nullptr);
    if (usesKit)
    {
        (board->benchmark == 12 ? MeasureRecording : MeasureReloads)(board);
        return 0;
    }
    AgentLink agent(host);
    RelayLink relay(host);
    Session session = {agent, relay, board};
    measure(session);
    InterlockedExchange(&board->bridgeDone, 1);
    agent.WaitForEnd();
    return 0;
}
