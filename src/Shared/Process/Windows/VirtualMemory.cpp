#include "Shared/Process/Windows/VirtualMemory.h"

#include "Shared/Foundation/Logger.h"

#include <windows.h>

namespace Torvane::VirtualMemory
{
namespace
{
/// 0 until the first query. Threads that query at the same time store the same value.
volatile LONG pageSize = 0;
} // namespace

uint32_t GetPageSize()
{
    if (pageSize == 0)
    {
        SYSTEM_INFO information = {};
        GetSystemInfo(&information);
        InterlockedExchange(&pageSize, static_cast<LONG>(information.dwPageSize));
    }
    return static_cast<uint32_t>(pageSize);
}

size_t RoundUpToPages(size_t size)
{
    const size_t page = GetPageSize();
    return (size + page - 1) & (0 - page);
}

void* Reserve(size_t size)
{
    if (size == 0)
    {
        return nullptr;
    }
    const size_t rounded = RoundUpToPages(size);
    void* address = VirtualAlloc(nullptr, rounded, MEM_RESERVE, PAGE_NOACCESS);
    if (address == nullptr)
    {
        LogError(TVN_HERE, "Cannot reserve %zu bytes of address space", rounded);
    }
    return address;
}

bool ReserveAt(void* address, size_t size)
{
    if (VirtualAlloc(address, size, MEM_RESERVE, PAGE_NOACCESS) == nullptr)
    {
        LogError(TVN_HERE, "Cannot reserve %zu bytes of address space at address 0x%p", size, address);
        return false;
    }
    return true;
}

bool Commit(void* address, size_t size)
{
    if (VirtualAlloc(address, size, MEM_COMMIT, PAGE_READWRITE) == nullptr)
    {
        LogError(TVN_HERE, "Cannot commit %zu bytes of physical memory.", size);
        return false;
    }
    return true;
}

void Release(void* address)
{
    VirtualFree(address, 0, MEM_RELEASE);
}
} // namespace Torvane::VirtualMemory
