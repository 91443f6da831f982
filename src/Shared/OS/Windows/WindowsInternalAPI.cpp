#include "Shared/OS/Windows/WindowsInternalAPI.h"

#include <stddef.h>
#include <string.h>

namespace Torvane
{
namespace
{
WindowsInternalAPI table = {};

struct Entry
{
    const char* module;
    const char* function;
    size_t offset; ///< in `WindowsInternalAPI`
};

#define TVN_ENTRY(module, function)                               \
    {                                                             \
        module, #function, offsetof(WindowsInternalAPI, function) \
    }

constexpr Entry entries[] = {
    TVN_ENTRY("ntdll.dll", NtSuspendProcess),
    TVN_ENTRY("ntdll.dll", NtResumeProcess),
    TVN_ENTRY("ntdll.dll", NtReadVirtualMemory),
    TVN_ENTRY("ntdll.dll", NtWriteVirtualMemory),
    TVN_ENTRY("ntdll.dll", NtQuerySystemInformation),
    TVN_ENTRY("ntdll.dll", NtQueryInformationProcess),
    TVN_ENTRY("ntdll.dll", NtQueryVirtualMemory),
    TVN_ENTRY("ntdll.dll", NtQueryDirectoryFile),
    TVN_ENTRY("ntdll.dll", NtQueryInformationFile),
    TVN_ENTRY("ntdll.dll", NtContinue),
    TVN_ENTRY("ntdll.dll", RtlGetVersion),
    TVN_ENTRY("ntdll.dll", LdrRegisterDllNotification),
    TVN_ENTRY("ntdll.dll", LdrUnregisterDllNotification),
    TVN_ENTRY("KernelBase.dll", SetThreadDescription),
};
#undef TVN_ENTRY
static_assert(sizeof(entries) / sizeof(entries[0]) * sizeof(void*) == sizeof(table),
              "one row for each entry");
} // namespace

void StartupWindowsInternalAPI()
{
    for (const Entry& entry : entries)
    {
        void* function = FindWindowsFunction(entry.module, entry.function);
        memcpy(reinterpret_cast<char*>(&table) + entry.offset, &function, sizeof(function));
    }
}

const WindowsInternalAPI& GetWindowsInternalAPI()
{
    return table;
}
} // namespace Torvane
