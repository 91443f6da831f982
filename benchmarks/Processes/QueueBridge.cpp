// Figure 3, the Bridge's part: takes what comes, and tells when a burst is through.
#include "AgentLink.h"
#include "Bursts.h"

#include <process.h>

namespace Torvane::Benchmarks
{
namespace
{
Pipe rivalPipe;
HANDLE rivalDrained;

unsigned __stdcall ReceiveFromRival(void*)
{
    char message[512];
    for (uint32_t count = 1; rivalPipe.ReadMessage(message, sizeof(message)); ++count)
    {
        if (count % burstSize == 0)
        {
            SetEvent(rivalDrained);
        }
    }
    return 0;
}
} // namespace

void ReceiveBursts(Session& session)
{
    const uint32_t host = Bridge::HostProcessIdFromCommandLine();
    rivalDrained = OpenDrained(L"Rival", host);
    rivalPipe.Open(rivalPipeName, host);
    CloseHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ReceiveFromRival, nullptr, 0, nullptr)));
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
