#include "tests/Soak/Sampling.h"

#include "Shared/Memory/Allocator/PoolChunk.h"
#include "tests/Support/Modules.h"
#include "tests/Support/OperatingSystem.h"

#include <algorithm>

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace Torvane::Soak
{
namespace
{
constexpr uint32_t poolCount = 128;
constexpr uint32_t classStep = 8;

/// As `MicroPool` is laid out, whose members are private.
struct Pool
{
    CRITICAL_SECTION lock;
    HANDLE heap;
    const FreeBlock* freeList;
    uint32_t blockSize;
    uint32_t alignment;
    uint32_t chunkSize;
    const Pool* chunkList; ///< the first word of each chunk links it to the next one
};
static_assert(sizeof(Pool) == 48);

bool IsPool(const Pool& pool, uint32_t index)
{
    return pool.blockSize == classStep * (index + 1) && pool.alignment == 16 && pool.chunkSize == 0x100000;
}

bool ArePools(const uint8_t* bytes)
{
    const Pool* pools = reinterpret_cast<const Pool*>(bytes);
    for (uint32_t i = 0; i < poolCount; ++i)
    {
        if (!IsPool(pools[i], i))
        {
            return false;
        }
    }
    return true;
}

int CountList(const void* first)
{
    int count = 0;
    for (const void* node = first; node != nullptr; node = *static_cast<void* const*>(node))
    {
        ++count;
    }
    return count;
}

/// The first stride of a chunk stays out of its list of blocks.
int CountInUse(Pool& pool)
{
    const uint32_t stride = (pool.blockSize + pool.alignment - 1) / pool.alignment * pool.alignment;
    EnterCriticalSection(&pool.lock);
    const int carved = CountList(pool.chunkList) * static_cast<int>(pool.chunkSize / stride - 1);
    const int count = carved - CountList(pool.freeList);
    LeaveCriticalSection(&pool.lock);
    return count;
}

int CountBusy(HANDLE heap)
{
    int count = 0;
    PROCESS_HEAP_ENTRY entry = {};
    HeapLock(heap);
    while (HeapWalk(heap, &entry))
    {
        count += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    }
    HeapUnlock(heap);
    return count;
}

uint32_t CountThreads()
{
    uint32_t count = 0;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
    {
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    }
    CloseHandle(snapshot);
    return count;
}

/// Where the OS doesn't count them, handles are tried one by one: a new one is the lowest that is free. The list of all
/// processes' handles can't be used, since Wine 8's server crashes on a process without handles.
uint32_t CountHandles()
{
    constexpr uint32_t longestGap = 512;
    DWORD handles = 0;
    if (Testing::CountsHandles() && GetProcessHandleCount(GetCurrentProcess(), &handles))
    {
        return handles;
    }
    uint32_t count = 0;
    for (uintptr_t index = 1, last = 0; index - last <= longestGap; ++index)
    {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(4 * index), &flags))
        {
            ++count;
            last = index;
        }
    }
    return count;
}

uint64_t MeasureAddressSpace()
{
    const bool ownReserves = Testing::ReservesBelongToTheProcess();
    uint64_t size = 0;
    MEMORY_BASIC_INFORMATION pages = {};
    for (const char* next = nullptr; VirtualQuery(next, &pages, sizeof(pages)) == sizeof(pages);
         next = static_cast<const char*>(pages.BaseAddress) + pages.RegionSize)
    {
        const bool own = ownReserves || pages.AllocationProtect != 0;
        const bool used = pages.State == MEM_COMMIT || (pages.State == MEM_RESERVE && own);
        size += used ? pages.RegionSize : 0;
    }
    return size;
}
} // namespace

AgentBlocks::AgentBlocks()
    : countBefore(GetProcessHeaps(64, heapsBefore))
{
}

bool AgentBlocks::Find(const void* library)
{
    const uint8_t* image = static_cast<const uint8_t*>(library);
    const IMAGE_NT_HEADERS& headers = Testing::ImageHeaders(library);
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(&headers);
    for (WORD i = 0; i < headers.FileHeader.NumberOfSections; ++i, ++section)
    {
        const uint32_t size = section->Misc.VirtualSize;
        const bool writable = (section->Characteristics & IMAGE_SCN_MEM_WRITE) != 0;
        for (uint32_t at = 0; writable && at + poolCount * sizeof(Pool) <= size && pools == nullptr; at += 4)
        {
            if (ArePools(image + section->VirtualAddress + at))
            {
                pools = image + section->VirtualAddress + at;
            }
        }
    }
    HANDLE heaps[64];
    const DWORD count = GetProcessHeaps(64, heaps);
    for (DWORD i = 0; pools != nullptr && i < count; ++i)
    {
        const bool isNew =
            std::find(heapsBefore, heapsBefore + countBefore, heaps[i]) == heapsBefore + countBefore;
        if (isNew && heaps[i] != reinterpret_cast<const Pool*>(pools)->heap)
        {
            largeHeap = heaps[i];
        }
    }
    return largeHeap != nullptr;
}

int AgentBlocks::Count() const
{
    if (largeHeap == nullptr)
    {
        return -1;
    }
    int count = CountBusy(largeHeap);
    for (uint32_t i = 0; i < poolCount; ++i)
    {
        count += CountInUse(reinterpret_cast<Pool*>(const_cast<uint8_t*>(pools))[i]);
    }
    return count;
}

double Now()
{
    LARGE_INTEGER counter;
    LARGE_INTEGER frequency;
    QueryPerformanceCounter(&counter);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

Sample TakeSample(const AgentBlocks& blocks, const std::wstring& logPath)
{
    Sample sample;
    sample.time = Now();
    sample.handles = CountHandles();
    sample.threads = CountThreads();
    PROCESS_MEMORY_COUNTERS memory = {};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    sample.privateBytes = memory.PagefileUsage; // the same as `PrivateUsage`, which Wine doesn't fill
    sample.addressSpace = MeasureAddressSpace();
    WIN32_FILE_ATTRIBUTE_DATA file = {};
    if (GetFileAttributesExW(logPath.c_str(), GetFileExInfoStandard, &file))
    {
        sample.logBytes = uint64_t{file.nFileSizeHigh} << 32 | file.nFileSizeLow;
    }
    sample.blocks = blocks.Count();
    return sample;
}
} // namespace Torvane::Soak
