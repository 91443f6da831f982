/// \file
/// The Bridge of the modules sample: writes the modules that are enabled and disabled to bridge.log in its folder.

#include "bridge/Bridge.h"

#include "samples/Common/OwnFolder.h"

#include <stdio.h>

using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 30000; // milliseconds

void Report(FILE* log, const char* what, const std::vector<EnabledModule>& modules)
{
    for (const EnabledModule& module : modules)
    {
        fprintf(log, "%s %ls\n", what, FileNameOf(module.path).c_str());
    }
}

int RunReport(uint32_t hostProcessId)
{
    FILE* log = _wfopen((OwnFolder() + L"bridge.log").c_str(), L"w");
    Link link(hostProcessId);
    const HostProcess host(hostProcessId);
    if (log == nullptr || !link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    link.Serve<EnableModulesBlob>([&](const Received<EnableModulesBlob>& enabled) {
        Report(log, "enabled ", ModulesOf(enabled));
        AcknowledgeModules(link, host, enabled);
    });
    link.Serve<DisableModulesBlob>(
        [&](const Received<DisableModulesBlob>& disabled) { Report(log, "disabled", ModulesOf(disabled)); });
    link.Run();
    fprintf(log, "the host has ended\n");
    fclose(log);
    return 0;
}
} // namespace
} // namespace Torvane::Sample

int main()
{
    return Torvane::Sample::RunReport(HostProcessIdFromCommandLine());
}
