#include "bridge/ThreadSuspender.h"

#include "bridge/ThreadGuard.h"

#include <algorithm>
#include <iterator>

#include <windows.h>

#include <process.h>
#include <tlhelp32.h>

namespace Torvane::Bridge
{
namespace
{
constexpr DWORD threadAccess = THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION;

Result<std::vector<uint32_t>> ThreadsOf(uint32_t processId)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
    {
        return OSFailure("the host's threads can't be listed");
    }
    std::vector<uint32_t> ids;
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

bool EndsBefore(const RemoteRange& range, RemoteAddress address)
{
    return range.base + range.size <= address;
}

bool IsIn(RemoteAddress address, const std::vector<RemoteRange>& sortedRanges)
{
    const auto range = std::lower_bound(sortedRanges.begin(), sortedRanges.end(), address, EndsBefore);
    return range != sortedRanges.end() && address >= range->base;
}

std::vector<RemoteRange> Sorted(std::vector<RemoteRange> ranges)
{
    std::sort(ranges.begin(), ranges.end(),
              [](const RemoteRange& left, const RemoteRange& right) { return left.base < right.base; });
    return ranges;
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

Result<> ThreadSuspender::Suspend()
{
    constexpr uint32_t tries = 50; // a thread that ends is listed for a while
    constexpr uint32_t rounds = 10000;
    if (process == nullptr)
    {
        return Failure{"the host can't be opened, or has ended"};
    }
    Result<> guarded = StartThreadGuard();
    if (!guarded)
    {
        return guarded;
    }
    uint32_t failures = 0;
    for (uint32_t i = 0; i < rounds; ++i)
    {
        Round round = SuspendNewThreads();
        if (round.added != 0)
        {
            WaitUntilStopped();
        }
        if (round.failure)
        {
            if (++failures == tries)
            {
                Resume();
                return std::move(*round.failure);
            }
            Sleep(1);
        }
        else if (round.added == 0)
        {
            return threads.empty() ? Result<>(Failure{"the host has no thread that could be suspended"})
                                   : Result<>();
        }
    }
    Resume();
    return Failure{"the host creates threads faster than they can be suspended"};
}

ThreadSuspender::Round ThreadSuspender::SuspendNewThreads()
{
    Round round;
    const Result<std::vector<uint32_t>> ids = ThreadsOf(processId);
    if (!ids)
    {
        round.failure = ids.Why();
        return round;
    }
    for (const uint32_t id : *ids)
    {
        if (IsSuspendedOrExcluded(id))
        {
            continue;
        }
        Result<> suspended = SuspendOne(id);
        if (suspended)
        {
            ++round.added;
        }
        else
        {
            round.failure = suspended.Why();
        }
    }
    return round;
}

Result<> ThreadSuspender::SuspendOne(uint32_t id)
{
    const HANDLE thread = OpenThread(threadAccess, FALSE, id);
    if (thread == nullptr)
    {
        return OSFailure("thread " + std::to_string(id) + " can't be opened");
    }
    GuardedThread* guarded = GuardThread(processId, id);
    if (guarded == nullptr)
    {
        CloseHandle(thread);
        return Failure{"there are too many threads"};
    }
    if (SuspendThread(thread) == static_cast<DWORD>(-1))
    {
        Failure failure = OSFailure("thread " + std::to_string(id) + " can't be suspended");
        ReleaseThread(guarded);
        CloseHandle(thread);
        return failure;
    }
    threads.push_back({id, thread, guarded});
    return {};
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
        if (reader == nullptr)
        {
            ReadPositions(this);
            return;
        }
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
        ReleaseThread(thread.guarded);
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

Result<> ThreadSuspender::SuspendAfterLoad()
{
    if (!resumedForLoad)
    {
        return {};
    }
    resumedForLoad = false;
    return Suspend();
}

bool ThreadSuspender::AnyAt(const std::vector<RemoteRange>& ranges) const
{
    const std::vector<RemoteRange> sorted = Sorted(ranges);
    return std::any_of(threads.begin(), threads.end(), [&](const Thread& thread) {
        Position position;
        return !ReadPosition(thread.handle, position) || IsIn(position.instructionPointer, sorted);
    });
}

bool ThreadSuspender::IsInside(const Thread& thread, const std::vector<RemoteRange>& sortedRanges) const
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
    return IsIn(position.instructionPointer, sortedRanges) ||
           std::any_of(stack, stack + count / sizeof(uint32_t),
                       [&](uint32_t word) { return IsIn(word, sortedRanges); });
}

bool ThreadSuspender::RunBriefly(const std::vector<Thread>& running)
{
    const auto readPositions = [&running] {
        std::vector<Position> positions(running.size());
        for (size_t i = 0; i < running.size(); ++i)
        {
            ReadPosition(running[i].handle, positions[i]);
        }
        return positions;
    };
    const std::vector<Position> before = readPositions();
    for (const Thread& thread : running)
    {
        ResumeThread(thread.handle);
    }
    Sleep(1);
    for (const Thread& thread : running)
    {
        SuspendThread(thread.handle);
    }
    WaitUntilStopped();
    return !(readPositions() == before);
}

uint32_t ThreadSuspender::RunUntilOutside(const std::vector<RemoteRange>& ranges)
{
    constexpr uint32_t roundsWithoutProgress = 20;
    constexpr uint32_t rounds = 200; // a busy thread can be inside in each round
    const std::vector<RemoteRange> sorted = Sorted(ranges);
    uint32_t runs = 0;
    uint32_t idleRounds = 0;
    for (uint32_t round = 0; round < rounds && idleRounds < roundsWithoutProgress; ++round)
    {
        std::vector<Thread> inside;
        std::copy_if(threads.begin(), threads.end(), std::back_inserter(inside),
                     [&](const Thread& thread) { return IsInside(thread, sorted); });
        if (inside.empty())
        {
            break;
        }
        runs += static_cast<uint32_t>(inside.size());
        idleRounds = RunBriefly(inside) ? 0 : idleRounds + 1;
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
