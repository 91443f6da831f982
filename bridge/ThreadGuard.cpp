#include "bridge/ThreadGuard.h"

#include <stdlib.h>
#include <string.h>
#include <vector>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
/// Followed by two handles, in hexadecimal digits: the process to be waited for, and the section.
constexpr wchar_t guardOption[] = L" --torvane-resume-threads ";

constexpr size_t capacity = 16384; // threads
constexpr DWORD sectionSize = capacity * sizeof(GuardedThread);
constexpr int beforeOtherConstructors = 101; // the smallest number that isn't reserved

SRWLOCK lock = SRWLOCK_INIT; // of all that follows
HANDLE guard;
HANDLE section;
GuardedThread* threads;
size_t nextEntry;

// ---- In the guard ----

void ResumeThreadOf(uint32_t processId, uint32_t threadId)
{
    const HANDLE thread =
        OpenThread(THREAD_SUSPEND_RESUME | THREAD_QUERY_LIMITED_INFORMATION, FALSE, threadId);
    if (thread != nullptr)
    {
        if (GetProcessIdOfThread(thread) == processId) // otherwise the id has a new owner
        {
            ResumeThread(thread);
        }
        CloseHandle(thread);
    }
}

void ResumeAfter(HANDLE process, const GuardedThread* suspended)
{
    WaitForSingleObject(process, INFINITE);
    for (size_t i = 0; i < capacity; ++i)
    {
        if (suspended[i].threadId != 0)
        {
            ResumeThreadOf(suspended[i].processId, suspended[i].threadId);
        }
    }
}

/// Nothing of the program's own has run before, so that it can't take the guard's arguments for its own.
__attribute__((constructor(beforeOtherConstructors))) void RunGuardIfThisIsOne()
{
    const wchar_t* option = wcsstr(GetCommandLineW(), guardOption);
    if (option == nullptr)
    {
        return;
    }
    wchar_t* end = nullptr;
    const uint64_t process = wcstoull(option + wcslen(guardOption), &end, 16);
    const uint64_t shared = wcstoull(end, &end, 16);
    const void* view = MapViewOfFile(reinterpret_cast<HANDLE>(shared), FILE_MAP_READ, 0, 0, sectionSize);
    if (view != nullptr)
    {
        ResumeAfter(reinterpret_cast<HANDLE>(process), static_cast<const GuardedThread*>(view));
    }
    TerminateProcess(GetCurrentProcess(), view == nullptr ? 1 : 0);
}

// ---- In the process that suspends ----

std::wstring ProgramPath()
{
    std::vector<wchar_t> path(32768);
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return path.data();
}

std::wstring Hexadecimal(HANDLE handle)
{
    wchar_t digits[20] = {};
    _ui64tow(reinterpret_cast<uint64_t>(handle), digits, 16);
    return digits;
}

Result<> CreateSection()
{
    section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sectionSize, nullptr);
    threads = static_cast<GuardedThread*>(MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, sectionSize));
    return threads != nullptr ? Result<>() : OSFailure("the list of suspended threads can't be made");
}

/// Starts this program again, which inherits these handles and no others.
Result<HANDLE> StartGuard(HANDLE process, HANDLE shared)
{
    HANDLE handles[] = {process, shared};
    for (const HANDLE handle : handles)
    {
        SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::vector<uint8_t> buffer(size);
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof(startup);
    startup.lpAttributeList = reinterpret_cast<PPROC_THREAD_ATTRIBUTE_LIST>(buffer.data());
    InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size);
    UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                              sizeof(handles), nullptr, nullptr);
    const std::wstring program = ProgramPath();
    std::wstring commandLine =
        L"\"" + program + L"\"" + guardOption + Hexadecimal(process) + L" " + Hexadecimal(shared);
    PROCESS_INFORMATION started = {};
    const BOOL success = CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                        DETACHED_PROCESS | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                                        &startup.StartupInfo, &started);
    const Failure failure = OSFailure("the process that guards suspended threads can't be started");
    DeleteProcThreadAttributeList(startup.lpAttributeList);
    SetHandleInformation(shared, HANDLE_FLAG_INHERIT, 0);
    if (!success)
    {
        return failure;
    }
    CloseHandle(started.hThread);
    return started.hProcess;
}

Result<> StartLocked()
{
    if (guard != nullptr && WaitForSingleObject(guard, 0) == WAIT_TIMEOUT)
    {
        return {};
    }
    if (threads == nullptr)
    {
        Result<> created = CreateSection();
        if (!created)
        {
            return created;
        }
    }
    HANDLE self = nullptr;
    if (!DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), &self, SYNCHRONIZE,
                         FALSE, 0))
    {
        return OSFailure("this process's handle can't be duplicated");
    }
    const Result<HANDLE> started = StartGuard(self, section);
    CloseHandle(self);
    if (!started)
    {
        return started.Why();
    }
    if (guard != nullptr)
    {
        CloseHandle(guard);
    }
    guard = *started;
    return {};
}
} // namespace

Result<> StartThreadGuard()
{
    AcquireSRWLockExclusive(&lock);
    Result<> result = StartLocked();
    ReleaseSRWLockExclusive(&lock);
    return result;
}

GuardedThread* GuardThread(uint32_t processId, uint32_t threadId)
{
    GuardedThread* found = nullptr;
    AcquireSRWLockExclusive(&lock);
    for (size_t i = 0; threads != nullptr && found == nullptr && i < capacity; ++i)
    {
        GuardedThread& entry = threads[nextEntry++ % capacity];
        if (entry.threadId == 0)
        {
            entry.processId = processId;
            entry.threadId = threadId;
            found = &entry;
        }
    }
    ReleaseSRWLockExclusive(&lock);
    return found;
}

void ReleaseThread(GuardedThread* thread)
{
    thread->threadId = 0;
}
} // namespace Torvane::Bridge
