#include "bridge/HostProcess.h"

#include <windows.h>

#include <psapi.h>

namespace Torvane::Bridge
{
HostProcess::HostProcess(uint32_t id)
    : process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, id))
    , processId(id)
{
}

HostProcess::~HostProcess()
{
    if (process != nullptr)
    {
        CloseHandle(process);
    }
}

RemoteAddress HostProcess::ExecutableBase() const
{
    HMODULE first = nullptr; // the executable: it is the first module of each process
    DWORD needed = 0;
    return K32EnumProcessModulesEx(process, &first, sizeof(HMODULE), &needed, LIST_MODULES_32BIT)
               ? reinterpret_cast<RemoteAddress>(first)
               : 0;
}

HostProcess::Image HostProcess::ImageAt(RemoteAddress address) const
{
    MEMORY_BASIC_INFORMATION pages = {};
    VirtualQueryEx(process, reinterpret_cast<const void*>(address), &pages, sizeof(pages));
    if (pages.Type != MEM_IMAGE)
    {
        return {};
    }
    const auto base = reinterpret_cast<RemoteAddress>(pages.AllocationBase);
    RemoteAddress end = base;
    while (VirtualQueryEx(process, reinterpret_cast<const void*>(end), &pages, sizeof(pages)) != 0 &&
           reinterpret_cast<RemoteAddress>(pages.AllocationBase) == base)
    {
        end += pages.RegionSize;
    }
    return {base, static_cast<uint32_t>(end - base)};
}

std::vector<uint8_t> HostProcess::Read(RemoteAddress address, size_t size) const
{
    std::vector<uint8_t> bytes(size);
    SIZE_T count = 0;
    if (!ReadProcessMemory(process, reinterpret_cast<const void*>(address), bytes.data(), size, &count) ||
        count != size)
    {
        return {};
    }
    return bytes;
}

WirePageRange HostProcess::QueryPages(RemoteAddress address) const
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQueryEx(process, reinterpret_cast<const void*>(address), &information, sizeof(information));
    WirePageRange range = {};
    range.base = reinterpret_cast<RemoteAddress>(information.BaseAddress);
    range.size = information.RegionSize;
    range.protection = information.Protect;
    return range;
}

bool HostProcess::WaitForEnd(uint32_t milliseconds) const
{
    return WaitForSingleObject(process, milliseconds) == WAIT_OBJECT_0;
}
} // namespace Torvane::Bridge
