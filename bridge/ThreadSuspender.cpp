#include "bridge/ThreadSuspender.h"

#include <algorithm>

#include <windows.h>

#include <process.h>
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

struct Position
{
    uint32_t instructionPointer = 0;
    uint32_t stackPointer = 0;
};

bool operator==(const Position& left, const Position& right)
{
    return left.instructionPointer == right.instructionPointer && left.stackPointer == right.stackPointer;
}

/// Reading the context also waits until the suspension is complete.
bool ReadPosition(HANDLE thread, Position& position)
{
    WOW64_CONTEXT context = {};
    context.ContextFlags = WOW64_CONTEXT_CONTROL;
    if (!Wow64GetThreadContext(thread, &context))
    {
        return false;
    }
    position = {context.Eip, context.Esp};
    return true;
}

bool IsIn(RemoteAddress address, RemoteAddress first, uint32_t size)
{
    return address >= first && address < first + size;
}
} // namespace

ThreadSuspender::ThreadSuspender(uint32_t id, std::vector<uint32_t> excludedThreads)
    : processId(id)
    , process(OpenProcess(PROCESS_VM_READ, FALSE, id))
    , excluded(std::move(excludedThreads))
{
}

ThreadSuspender::~ThreadSuspender()
{
    Resume();
    CloseHandle(process);
}

void ThreadSuspender::Suspend()
{
    while (SuspendNewThreads() != 0)
    {
        WaitUntilStopped();
    }
}

uint32_t ThreadSuspender::SuspendNewThreads()
{
    uint32_t added = 0;
    for (const uint32_t id : ThreadsOf(processId))
    {
        if (IsSuspendedOrExcluded(id))
        {
            continue;
        }
        const HANDLE thread = OpenThread(threadAccess, FALSE, id);
        if (thread == nullptr)
        {
            continue; // it has ended
        }
        if (SuspendThread(thread) == static_cast<DWORD>(-1))
        {
            CloseHandle(thread);
            continue;
        }
        threads.push_back({id, thread});
        ++added;
    }
    return added;
}

unsigned __stdcall ThreadSuspender::ReadPositions(void* suspender)
{
    for (const Thread& thread : static_cast<ThreadSuspender*>(suspender)->threads)
    {
        Position ignored;
        ReadPosition(thread.handle, ignored);
    }
    return 0;
}

void ThreadSuspender::WaitUntilStopped()
{
    for (uint32_t limit = 100;; limit *= 2) // milliseconds; a busy machine takes its time
    {
        const auto reader =
            reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &ReadPositions, this, 0, nullptr));
        const bool stopped = WaitForSingleObject(reader, limit) == WAIT_OBJECT_0;
        if (!stopped)
        {
            for (const Thread& thread : threads)
            {
                ResumeThread(thread.handle);
            }
            WaitForSingleObject(reader, INFINITE);
        }
        CloseHandle(reader);
        if (stopped)
        {
            return;
        }
        for (const Thread& thread : threads)
        {
            SuspendThread(thread.handle);
        }
    }
}

void ThreadSuspender::Resume()
{
    resumedForLoad = false;
    for (const Thread& thread : threads)
    {
        ResumeThread(thread.handle);
        CloseHandle(thread.handle);
    }
    threads.clear();
}

void ThreadSuspender::ResumeForLoad()
{
    const bool suspended = !threads.empty();
    Resume();
    resumedForLoad = suspended;
}

void ThreadSuspender::SuspendAfterLoad()
{
    if (resumedForLoad)
    {
        resumedForLoad = false;
        Suspend();
    }
}

bool ThreadSuspender::AnyAt(RemoteAddress address, uint32_t size) const
{
    return std::any_of(threads.begin(), threads.end(), [=](const Thread& thread) {
        Position position;
        return !ReadPosition(thread.handle, position) || IsIn(position.instructionPointer, address, size);
    });
}

bool ThreadSuspender::IsInside(const Thread& thread, RemoteAddress image, uint32_t size) const
{
    constexpr size_t words = 128; // more than the OS's functions push between their caller and a system call
    Position position;
    if (!ReadPosition(thread.handle, position))
    {
        return false;
    }
    uint32_t stack[words];
    SIZE_T count = 0;
    for (size_t wanted = words; wanted != 0 && count == 0;
         wanted /= 2) // near the stack's base there are fewer
    {
        ReadProcessMemory(process, reinterpret_cast<const void*>(uintptr_t{position.stackPointer}), stack,
                          wanted * sizeof(uint32_t), &count);
    }
    return IsIn(position.instructionPointer, image, size) ||
           std::any_of(stack, stack + count / sizeof(uint32_t),
                       [=](uint32_t word) { return IsIn(word, image, size); });
}

bool ThreadSuspender::RunBriefly(const Thread& thread)
{
    Position before;
    Position after;
    ReadPosition(thread.handle, before);
    ResumeThread(thread.handle);
    Sleep(1);
    SuspendThread(thread.handle);
    WaitUntilStopped();
    return ReadPosition(thread.handle, after) && !(after == before);
}

uint32_t ThreadSuspender::RunUntilOutside(RemoteAddress image, uint32_t size)
{
    constexpr uint32_t roundsWithoutProgress = 20;
    constexpr uint32_t rounds = 200; // a busy thread can be inside in each round
    uint32_t runs = 0;
    uint32_t idleRounds = 0;
    for (uint32_t round = 0; round < rounds && idleRounds < roundsWithoutProgress; ++round)
    {
        bool anyInside = false;
        bool anyMoved = false;
        for (const Thread& thread : threads)
        {
            if (IsInside(thread, image, size))
            {
                anyInside = true;
                anyMoved = RunBriefly(thread) || anyMoved;
                ++runs;
            }
        }
        if (!anyInside)
        {
            break;
        }
        idleRounds = anyMoved ? 0 : idleRounds + 1;
    }
    return runs;
}

bool ThreadSuspender::IsSuspendedOrExcluded(uint32_t id) const
{
    return std::find(excluded.begin(), excluded.end(), id) != excluded.end() ||
           std::any_of(threads.begin(), threads.end(),
                       [id](const Thread& thread) { return thread.id == id; });
}

std::vector<uint32_t> AgentThreads(const RegisterProcessBlob& process)
{
    return {process.senderThreadId, process.receiverThreadId, process.heartbeatThreadId,
            process.watchdogThreadId};
}
} // namespace Torvane::Bridge
