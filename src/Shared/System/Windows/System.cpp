#include "Shared/System/Windows/System.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/Memory/OwnedAllocation.h"
#include "Shared/OS/Windows/WindowsInternalAPI.h"

namespace Torvane
{
namespace
{
OSVERSIONINFOW osVersion = {sizeof(OSVERSIONINFOW), 0, 0, 0, 0, {}};
static_assert(sizeof(OSVERSIONINFOW) == 276);
} // namespace

void QueryProcessorTopology()
{
    DWORD size = 0;
    if (!GetLogicalProcessorInformationEx(RelationAll, nullptr, &size) &&
        GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        const OwnedAllocation answer(Allocate(size));
        if (GetLogicalProcessorInformationEx(
                RelationAll, static_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX*>(answer.Get().pointer),
                &size))
        {
            return;
        }
    }
    SYSTEM_INFO information = {};
    GetSystemInfo(&information);
}

void QueryOSVersion(OSVERSIONINFOW& version)
{
    const NTSTATUS status = GetWindowsInternalAPI().RtlGetVersion(&version);
    if (status != 0)
    {
        LogError(TVN_HERE, "Call to function RtlGetVersion failed. Error: 0x%X", status);
    }
}

void StartupSystem()
{
    QueryProcessorTopology();
    QueryOSVersion(osVersion);
}

const OSVERSIONINFOW& GetOSVersion()
{
    return osVersion;
}
} // namespace Torvane
