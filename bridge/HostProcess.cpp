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

std::wstring HostProcess::ExecutablePath() const
{
    std::wstring path(32768, L'\0');
    DWORD length = static_cast<DWORD>(path.size());
    path.resize(QueryFullProcessImageNameW(process, 0, path.data(), &length) ? length : 0);
    return path;
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

bool HostProcess::HasAccess(RemoteAddress address, size_t size, uint32_t protections) const
{
    const RemoteAddress end = address + size;
    while (address < end)
    {
        const WirePageRange pages = QueryPages(address);
        if (pages.size == 0 || (pages.protection & PAGE_GUARD) != 0 || (pages.protection & protections) == 0)
        {
            return false;
        }
        address = pages.base + pages.size;
    }
    return true;
}

bool HostProcess::CanRead(RemoteAddress address, size_t size) const
{
    return HasAccess(address, size,
                     PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                         PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY);
}

bool HostProcess::CanExecute(RemoteAddress address, size_t size) const
{
    return HasAccess(address, size,
                     PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY);
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
