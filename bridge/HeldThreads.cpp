#include "bridge/HeldThreads.h"

#include <algorithm>

#include <windows.h>

#include <tlhelp32.h>

namespace Torvane::Bridge
{
namespace
{
constexpr DWORD threadAccess = THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION;

std::vector<uint32_t> ThreadsOf(uint32_t processId)
{
    std::vector<uint32_t> ids;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
    {
        return ids;
    }
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
    {
        if (entry.th32OwnerProcessID == processId)
        {
            ids.push_back(entry.th32ThreadID);
        }
    }
    CloseHandle(snapshot);
    return ids;
}

/// Reading the context also waits until the suspension, which the OS only begins in the call, is complete.
bool ReadInstructionPointer(HANDLE thread, uint32_t& instructionPointer)
{
    WOW64_CONTEXT context = {};
    context.ContextFlags = WOW64_CONTEXT_CONTROL;
    if (!Wow64GetThreadContext(thread, &context))
    {
        return false;
    }
    instructionPointer = context.Eip;
    return true;
}
} // namespace

HeldThreads::HeldThreads(uint32_t id, std::vector<uint32_t> sparedThreads)
    : processId(id)
    , spared(std::move(sparedThreads))
{
}

HeldThreads::~HeldThreads()
{
    Resume();
}

void HeldThreads::Hold()
{
    while (HoldNewThreads() != 0)
    {
    }
}

uint32_t HeldThreads::HoldNewThreads()
{
    uint32_t added = 0;
    for (const uint32_t id : ThreadsOf(processId))
    {
        if (IsHeldOrSpared(id))
        {
            continue;
        }
        const HANDLE thread = OpenThread(threadAccess, FALSE, id);
        if (thread == nullptr)
        {
            continue; // it has ended since
        }
        if (SuspendThread(thread) == static_cast<DWORD>(-1))
        {
            CloseHandle(thread);
            continue;
        }
        uint32_t ignored = 0;
        ReadInstructionPointer(thread, ignored);
        threads.push_back({id, thread});
        ++added;
    }
    return added;
}

void HeldThreads::Resume()
{
    for (const Thread& thread : threads)
    {
        ResumeThread(thread.handle);
        CloseHandle(thread.handle);
    }
    threads.clear();
}

bool HeldThreads::AnyAt(AddressSlot address, uint32_t size) const
{
    return std::any_of(threads.begin(), threads.end(), [=](const Thread& thread) {
        uint32_t instructionPointer = 0;
        return !ReadInstructionPointer(thread.handle, instructionPointer) ||
               (instructionPointer >= address && instructionPointer < address + size);
    });
}

bool HeldThreads::IsHeldOrSpared(uint32_t id) const
{
    return std::find(spared.begin(), spared.end(), id) != spared.end() ||
           std::any_of(threads.begin(), threads.end(),
                       [id](const Thread& thread) { return thread.id == id; });
}

std::vector<uint32_t> AgentThreads(const RegisterProcessBlob& process)
{
    return {process.senderThreadId, process.receiverThreadId, process.heartbeatThreadId,
            process.watchdogThreadId};
}
} // namespace Torvane::Bridge
