// The Bridge of the soak's hosts.
#include "tests/Soak/Bridge.h"

#include <process.h>

namespace
{
using namespace Torvane::Soak;

/// The process ends with its host, whatever it waits for.
unsigned __stdcall EndWithHost(void* host)
{
    WaitForSingleObject(host, INFINITE);
    TerminateProcess(GetCurrentProcess(), 4);
    return 0;
}

/// As by a crash: no handle is closed by anybody but the OS.
unsigned __stdcall EndAfter(void* milliseconds)
{
    Sleep(static_cast<DWORD>(reinterpret_cast<uintptr_t>(milliseconds)));
    TerminateProcess(GetCurrentProcess(), 5);
    return 0;
}
} // namespace

int main()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const uint32_t host = Torvane::Bridge::HostProcessIdFromCommandLine();
    const Board board(host);
    board.Enter(bridgeThread, "connecting");
    board->bridgeProcessId = static_cast<LONG>(GetCurrentProcessId());
    _beginthreadex(nullptr, 0, &EndWithHost, OpenProcess(SYNCHRONIZE, FALSE, host), 0, nullptr);
    if (board->lifeTime != 0)
    {
        _beginthreadex(nullptr, 0, &EndAfter, reinterpret_cast<void*>(uintptr_t{board->lifeTime}), 0,
                       nullptr);
    }
    Torvane::Bridge::Link link(host);
    link.Observe([&board](const Torvane::Bridge::Message& message) {
        if (message.From() == Torvane::Bridge::Direction::FromAgent)
        {
            InterlockedIncrement(&board->blobs);
        }
        if (message.Type() == Torvane::BlobType::ResumeHeldThreads)
        {
            InterlockedIncrement(&board->watchdog);
        }
    });
    if (!link.Connect(connectLimit) || !link.ExchangeVersion(connectLimit))
    {
        return 1;
    }
    const auto agent = link.WaitFor<Torvane::RegisterAgentBlob>(limit);
    const auto process = link.WaitFor<Torvane::RegisterProcessBlob>(limit);
    if (!agent || !process || process->processId != host)
    {
        return board->lifeTime == 0 && board.Fail("the Agent hasn't registered its process") ? 0 : 1;
    }
    if (board->work == BridgeWork::Reload)
    {
        ReloadAllTheTime(link, board, *agent, *process);
    }
    else
    {
        Serve(link, board);
    }
    return 0;
}
