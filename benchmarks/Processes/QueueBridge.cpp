// Benchmark 3, the Bridge's part: receives messages and signals the end of each burst.
#include "AgentLink.h"
#include "Bursts.h"

#include <process.h>

namespace Torvane::Benchmarks
{
namespace
{
Pipe baselinePipe;
HANDLE baselineDrained;

unsigned __stdcall ReceiveFromBaseline(void*)
{
    char message[512];
    for (uint32_t count = 1; baselinePipe.ReadMessage(message, sizeof(message)); ++count)
    {
        if (count % burstSize == 0)
        {
            SetEvent(baselineDrained);
        }
    }
    return 0;
}
} // namespace

void ReceiveBursts(Session& session)
{
    const uint32_t host = Bridge::HostProcessIdFromCommandLine();
    baselineDrained = OpenDrained(L"Baseline", host);
    baselinePipe.Open(baselinePipeName, host);
    CloseHandle(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ReceiveFromBaseline, nullptr, 0, nullptr)));
    const HANDLE drained = OpenDrained(L"Ours", host);
    char message[512];
    for (uint32_t burst = 0; burst < session.board->bursts; ++burst)
    {
        for (uint32_t i = 0; i < burstSize; ++i)
        {
            session.agent.ReceiveWhole(message, sizeof(message));
        }
        SetEvent(drained);
    }
}
} // namespace Torvane::Benchmarks
