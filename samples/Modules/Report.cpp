/// \file
/// The Bridge of the modules sample: writes the modules that are enabled and disabled to bridge.log in its folder.

#include "bridge/Bridge.h"

#include "samples/Common/OwnFolder.h"

#include <stdio.h>

#include <windows.h>

#include <psapi.h>

using namespace Torvane::Bridge;

namespace Torvane::Sample
{
namespace
{
constexpr uint32_t limit = 30000; // milliseconds

/// How many modules a 32-bit process has loaded; 0 if it can't be read.
uint32_t CountModules(uint32_t processId)
{
    const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, processId);
    HMODULE first = nullptr;
    DWORD size = 0;
    K32EnumProcessModulesEx(process, &first, sizeof(first), &size, LIST_MODULES_32BIT);
    CloseHandle(process);
    return static_cast<uint32_t>(size / sizeof(first));
}

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
    if (log == nullptr || !link.Connect(limit) || !link.ExchangeVersion(limit))
    {
        return 1;
    }
    link.Serve<EnableModulesBlob>([&](const Received<EnableModulesBlob>& enabled) {
        Report(log, "enabled ", ModulesOf(enabled));
        // The host's call also waits for modules that its filter has refused, which aren't reported. They are fewer
        // than the modules that the host has loaded, and further acknowledgements have no effect.
        SendDecrementLatch(link, enabled->latch, CountModules(link.HostProcessId()));
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
