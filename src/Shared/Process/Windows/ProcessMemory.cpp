#include "Shared/Process/Windows/ProcessMemory.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/OS/Windows/WindowsInternalAPI.h"
#include "Shared/Process/Windows/VirtualMemory.h"

#include <string.h>

namespace Torvane
{
namespace
{
static_assert(sizeof(MEMORY_BASIC_INFORMATION) == 28);

constexpr uint32_t initialPageRangeCapacity = 1024;

/// Base protections that have an executable twin lie this many bits below it.
constexpr uint32_t executableProtectionShift = 4;
constexpr uint32_t baseProtectionMask = 0xFF;

/// The start of the published `PEB` of a 32-bit process.
struct ProcessEnvironmentBlock
{
    uint8_t unread00[0x10];
    uint32_t processParameters; ///< address of the `ProcessParameters`
    uint8_t unread14[0x1C4];
};
static_assert(sizeof(ProcessEnvironmentBlock) == 0x1D8);

/// The start of the published `RTL_USER_PROCESS_PARAMETERS` of a 32-bit process.
struct ProcessParameters
{
    uint8_t unread00[0x48];
    uint32_t environment; ///< address of the environment block
};
static_assert(sizeof(ProcessParameters) == 0x4C);

NTSTATUS QueryMemory(HANDLE process, const void* address, MEMORY_BASIC_INFORMATION& information)
{
    information = {};
    return GetWindowsInternalAPI().NtQueryVirtualMemory(process, const_cast<void*>(address),
                                                        MemoryBasicInformation, &information,
                                                        sizeof(information), nullptr);
}

void ProtectOrLog(void* address, uint32_t size, DWORD protection, DWORD& oldProtection)
{
    if (!VirtualProtect(address, size, protection, &oldProtection))
    {
        LogDebug(TVN_HERE, "VirtualProtect() failed: address 0x%p, size 0x%X, protection 0x%X", address, size,
                 protection);
    }
}

const void* AsAddress(uint32_t address)
{
    return reinterpret_cast<const void*>(static_cast<uintptr_t>(address));
}
} // namespace

bool ReadProcessBytes(HANDLE process, const void* source, void* destination, uint32_t count)
{
    const NTSTATUS status =
        GetWindowsInternalAPI().NtReadVirtualMemory(process, source, destination, count, nullptr);
    if (status < 0)
    {
        LogError(TVN_HERE, "Call to function NtReadVirtualMemory failed. Error: 0x%X", status);
        return false;
    }
    return true;
}

PageRangeList GatherPageRanges(const void* start, size_t size)
{
    LogDebug(TVN_HERE, "Determining page regions in the address range 0x%p with size 0x%016llX", start,
             static_cast<unsigned long long>(size));

    PageRangeList list(initialPageRangeCapacity);
    const char* cursor = static_cast<const char*>(start);
    const char* end = cursor + size;
    while (cursor < end)
    {
        MEMORY_BASIC_INFORMATION region;
        const NTSTATUS status = QueryMemory(GetCurrentProcess(), cursor, region);
        if (status != 0)
        {
            LogError(TVN_HERE, "Call to function NtQueryVirtualMemory failed. Error: 0x%X", status);
            break;
        }

        LogDebug(TVN_HERE, "Region 0x%p, size 0x%016llX, protection 0x%X, state 0x%X", region.BaseAddress,
                 static_cast<unsigned long long>(region.RegionSize), region.Protect, region.State);
        list.Append({reinterpret_cast<uintptr_t>(region.BaseAddress), region.RegionSize, region.Protect, 0});
        cursor = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    return list;
}

bool WriteCode(void* address, const void* bytes, uint32_t count)
{
    DWORD oldProtection = 0;
    ProtectOrLog(address, count, PAGE_READWRITE, oldProtection);
    memcpy(address, bytes, count);
    DWORD ignored = 0;
    ProtectOrLog(address, count, oldProtection, ignored);
    return FlushInstructionCache(GetCurrentProcess(), address, count) != 0;
}

OwnedAllocation ReadEnvironmentBlock(HANDLE process)
{
    PROCESS_BASIC_INFORMATION basic = {};
    static_assert(sizeof(basic) == 24);
    if (GetWindowsInternalAPI().NtQueryInformationProcess(process, ProcessBasicInformation, &basic,
                                                          sizeof(basic), nullptr) < 0)
    {
        return {};
    }

    ProcessEnvironmentBlock block = {};
    if (!ReadProcessBytes(process, basic.PebBaseAddress, &block, sizeof(block)))
    {
        return {};
    }
    ProcessParameters parameters = {};
    if (!ReadProcessBytes(process, AsAddress(block.processParameters), &parameters, sizeof(parameters)))
    {
        return {};
    }

    const void* environment = AsAddress(parameters.environment);
    MEMORY_BASIC_INFORMATION region;
    if (QueryMemory(process, environment, region) < 0)
    {
        return {};
    }

    const uintptr_t regionEnd = reinterpret_cast<uintptr_t>(region.BaseAddress) + region.RegionSize;
    OwnedAllocation copy(Allocate(static_cast<uint32_t>(regionEnd - parameters.environment)));
    if (!ReadProcessBytes(process, environment, copy.Get().pointer, copy.Get().size))
    {
        return {};
    }
    return copy;
}

void MakePageExecutable(void* address)
{
    MEMORY_BASIC_INFORMATION region;
    const NTSTATUS status = QueryMemory(GetCurrentProcess(), address, region);
    if (status != 0)
    {
        LogError(TVN_HERE, "Call to function NtQueryVirtualMemory failed. Error: 0x%X", status);
        return;
    }

    const uint32_t oldProtection = region.Protect;
    const uint32_t baseProtection = oldProtection & baseProtectionMask;
    if (baseProtection != PAGE_NOACCESS && baseProtection != PAGE_READONLY &&
        baseProtection != PAGE_READWRITE && baseProtection != PAGE_WRITECOPY)
    {
        return;
    }
    const uint32_t modifiers = oldProtection & ~baseProtectionMask;
    const uint32_t newProtection = (baseProtection << executableProtectionShift) | modifiers;
    const uint32_t pageSize = VirtualMemory::GetPageSize();
    void* page = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(address) & (0 - uintptr_t{pageSize}));
    LogDebug(TVN_HERE,
             "Converting page into executable page: address 0x%p, old protection 0x%X, new protection 0x%X",
             page, oldProtection, newProtection);
    DWORD ignored = 0;
    VirtualProtect(page, pageSize, newProtection, &ignored);
}
} // namespace Torvane
