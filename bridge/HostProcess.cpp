#include "bridge/HostProcess.h"

#include <windows.h>

#include <winternl.h>

namespace Torvane::Bridge
{
namespace
{
/// `ImageBaseAddress` in the 32-bit process environment block.
constexpr AddressSlot imageBaseInBlock32 = 0x08;

/// Where the 32-bit process environment block of a 32-bit process lies.
AddressSlot EnvironmentBlock32(HANDLE process)
{
    using Query = NTSTATUS(NTAPI*)(HANDLE, PROCESSINFOCLASS, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess")));
    ULONG_PTR block = 0;
    if (query == nullptr || query(process, ProcessWow64Information, &block, sizeof(block), nullptr) != 0)
    {
        return 0;
    }
    return block;
}
} // namespace

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

AddressSlot HostProcess::ExecutableBase() const
{
    const AddressSlot block = EnvironmentBlock32(process);
    const std::vector<uint8_t> bytes = Read(block + imageBaseInBlock32, sizeof(uint32_t));
    if (block == 0 || bytes.empty())
    {
        return 0;
    }
    return *reinterpret_cast<const uint32_t*>(bytes.data());
}

std::vector<uint8_t> HostProcess::Read(AddressSlot address, size_t size) const
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

WirePageRange HostProcess::QueryPages(AddressSlot address) const
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQueryEx(process, reinterpret_cast<const void*>(address), &information, sizeof(information));
    WirePageRange range = {};
    range.base = reinterpret_cast<AddressSlot>(information.BaseAddress);
    range.size = information.RegionSize;
    range.protection = information.Protect;
    return range;
}

bool HostProcess::WaitForEnd(uint32_t milliseconds) const
{
    return WaitForSingleObject(process, milliseconds) == WAIT_OBJECT_0;
}
} // namespace Torvane::Bridge
