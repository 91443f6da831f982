#include "bridge/Bridge.h"

using namespace Torvane::Bridge;

int main()
{
    const uint32_t hostProcessId = HostProcessIdFromCommandLine();
    const ScenarioFunction run = FindScenario(ChosenScenario());
    if (hostProcessId == 0 || run == nullptr)
    {
        return 64; // EX_USAGE of BSD's sysexits.h
    }
    if (!RecordEveryLinkIfRequested())
    {
        return 73; // EX_CANTCREAT
    }
    return run(hostProcessId);
}
