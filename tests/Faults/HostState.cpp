#include "HostState.h"

#include "tests/Support/Modules.h"

#include <stdio.h>

#include <process.h>

namespace Torvane::Faults
{
namespace
{
/// The host opens events until their handles reach this one. So an error code that the Agent takes for a handle,
/// ERROR_NO_SYSTEM_RESOURCES for instance, is a handle of the host's.
constexpr uintptr_t lastHandle = 0x600;

std::wstring CurrentFolder()
{
    wchar_t path[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, path);
    return path;
}

std::string Describe(const char* what, uintptr_t number)
{
    char text[96];
    snprintf(text, sizeof(text), "%s 0x%X", what, static_cast<unsigned>(number));
    return text;
}

/// The protection without what the OS changes itself at the first write, and with execution added, which the Agent is
/// specified to do before sections of code.
DWORD WithExecution(DWORD protection)
{
    constexpr DWORD noExecution = PAGE_NOACCESS | PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY;
    const DWORD executable = (protection & noExecution) != 0 ? protection << 4 : protection;
    return executable == PAGE_EXECUTE_WRITECOPY ? PAGE_EXECUTE_READWRITE : executable;
}

bool IsExecutable(DWORD protection)
{
    return (protection & 0xF0) != 0;
}
} // namespace

ThreadState ThreadState::Read()
{
    ThreadState state = {};
    __asm__ volatile("fnstcw %0" : "=m"(state.x87Control));
    __asm__ volatile("stmxcsr %0" : "=m"(state.sseControl));
    return state;
}

void ThreadState::Write() const
{
    __asm__ volatile("fldcw %0" : : "m"(x87Control));
    __asm__ volatile("ldmxcsr %0" : : "m"(sseControl));
}

bool ThreadState::operator==(const ThreadState& other) const
{
    constexpr uint32_t sseFlags = 0x3F; // raised by whatever the thread computes
    return x87Control == other.x87Control && (sseControl & ~sseFlags) == (other.sseControl & ~sseFlags);
}

HostState::HostState(HMODULE agent)
    : library(agent)
    , folder(CurrentFolder())
    , errorMode(GetErrorMode())
{
    uintptr_t highest = 0;
    while (highest < lastHandle)
    {
        EventPair event = {CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr};
        DuplicateHandle(GetCurrentProcess(), event.first, GetCurrentProcess(), &event.second, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        highest = reinterpret_cast<uintptr_t>(event.second);
        events.push_back(event);
    }
    CloseHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Tick, this, 0, nullptr)));
    pages = ReadProtections(library);
}

unsigned __stdcall HostState::Tick(void* state)
{
    for (;;)
    {
        InterlockedIncrement(&static_cast<HostState*>(state)->ticks);
        Sleep(5);
    }
}

std::vector<HostState::Pages> HostState::ReadProtections(const void* agent)
{
    std::vector<Pages> list;
    MEMORY_BASIC_INFORMATION region = {};
    for (const uint8_t* next = nullptr; VirtualQuery(next, &region, sizeof(region)) == sizeof(region);
         next = static_cast<const uint8_t*>(region.BaseAddress) + region.RegionSize)
    {
        if (region.State == MEM_COMMIT && region.Type == MEM_IMAGE && region.AllocationBase != agent)
        {
            list.push_back(
                {static_cast<const uint8_t*>(region.BaseAddress), region.RegionSize, region.Protect});
        }
    }
    return list;
}

void HostState::Compare(const Report& report)
{
    CompareEvents(report);
    CompareProtections(report);
    if (CurrentFolder() != folder)
    {
        report("current folder");
    }
    if (GetErrorMode() != errorMode)
    {
        report("error mode");
    }
    if (!HeapValidate(GetProcessHeap(), 0, nullptr))
    {
        report("process heap");
    }
    const LONG before = ticks;
    for (int tries = 0; ticks == before; ++tries)
    {
        if (tries == 500)
        {
            report("a host's thread stands still");
            break;
        }
        Sleep(10);
    }
}

void HostState::CompareEvents(const Report& report) const
{
    for (const EventPair& event : events)
    {
        const uintptr_t first = reinterpret_cast<uintptr_t>(event.first);
        const uintptr_t second = reinterpret_cast<uintptr_t>(event.second);
        const DWORD signalled = WaitForSingleObject(event.first, 0);
        if (signalled == WAIT_OBJECT_0)
        {
            report(Describe("signalled the host's handle", first));
        }
        if (signalled == WAIT_FAILED)
        {
            report(Describe("closed the host's handle", first));
        }
        else if (!SetEvent(event.second))
        {
            report(Describe("closed the host's handle", second));
        }
        else if (WaitForSingleObject(event.first, 0) != WAIT_OBJECT_0)
        {
            report(Describe("replaced the host's handle", first));
        }
    }
}

void HostState::CompareProtections(const Report& report) const
{
    for (const Pages& before : pages)
    {
        const uint8_t* end = before.base + before.size;
        for (const uint8_t* next = before.base; next < end;)
        {
            const MEMORY_BASIC_INFORMATION now = Testing::QueryMemory(next);
            const bool lost = IsExecutable(before.protection) && !IsExecutable(now.Protect);
            if (lost || WithExecution(now.Protect) != WithExecution(before.protection))
            {
                report(Describe("protection of pages, now", now.Protect));
            }
            next = static_cast<const uint8_t*>(now.BaseAddress) + now.RegionSize;
        }
    }
}
} // namespace Torvane::Faults
