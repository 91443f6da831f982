// The Bridge of the benchmarks. For figures that have no row here it obeys and does nothing else.
#include "AgentLink.h"

#include "bridge/DefaultBridge.h"
#include "bridge/Link.h"

#include <process.h>

namespace
{
using namespace Torvane::Benchmarks;

struct Row
{
    uint32_t figure;
    BridgeFigure measure;
};

constexpr Row rows[] = {
    {1, MeasureEcho}, {2, MeasureMemory}, {3, ReceiveBursts}, {9, MeasurePatches}, {11, AnswerExceptions},
};

BridgeFigure FindFigure(uint32_t figure)
{
    for (const Row& row : rows)
    {
        if (row.figure == figure)
        {
            return row.measure;
        }
    }
    return nullptr;
}

/// Nobody is left behind, whatever is waited for.
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
    const BridgeFigure measure = FindFigure(board->figure);
    if (measure == nullptr)
    {
        InterlockedExchange(&board->bridgeDone, 1);
        return Torvane::Bridge::RunDefaultBridge(host);
    }
    _beginthreadex(nullptr, 0, EndWithHost, OpenProcess(SYNCHRONIZE, FALSE, host), 0, nullptr);
    AgentLink agent(host);
    RelayLink relay(host);
    Session session = {agent, relay, board};
    measure(session);
    InterlockedExchange(&board->bridgeDone, 1);
    agent.WaitForEnd();
    return 0;
}
