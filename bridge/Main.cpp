#include "bridge/Bridge.h"

using namespace Torvane::Bridge;

int main()
{
    const uint32_t hostProcessId = HostProcessIdFromCommandLine();
    const ScenarioFunction run = FindScenario(ChosenScenario());
    if (hostProcessId == 0 || run == nullptr)
    {
        return 64; // wrong usage, in the exit codes that BSD gave names to
    }
    if (!RecordEveryLinkIfAsked())
    {
        return 73; // can't create an output file
    }
    return run(hostProcessId);
}
