// A small Bridge: it connects, looks whose Agent this is, and stays until the Agent goes.

#include "bridge/Bridge.h"

using namespace Torvane;
using namespace Torvane::Bridge;

int main()
{
    constexpr uint32_t limit = 30000; // milliseconds
    const uint32_t hostProcessId = HostProcessIdFromCommandLine();
    Link link(hostProcessId);
    if (!link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    const auto process = link.Expect<RegisterProcessBlob>(limit);
    if (!process || process->processId != hostProcessId || !WaitUntilObeyed(link, limit))
    {
        return 2;
    }
    return link.WaitUntilClosed(0xFFFFFFFF) ? 0 : 3;
}
