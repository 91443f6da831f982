#include "tests/Support/Integration/HandleTrace.h"

#include <algorithm>
#include <map>
#include <stdint.h>

#include <windows.h>

namespace Torvane::Testing
{
namespace
{
struct Call
{
    DWORD threadId;
    std::string text;
};

struct Trace
{
    SRWLOCK lock = SRWLOCK_INIT;
    std::map<std::string, int> created; ///< how many of each kind
    std::map<const void*, std::string> open;
    std::vector<Call> calls;
    size_t failedCloses = 0;
};

Trace trace;

class TraceLock
{
public:
    TraceLock()
    {
        AcquireSRWLockExclusive(&trace.lock);
    }

    ~TraceLock()
    {
        ReleaseSRWLockExclusive(&trace.lock);
    }
    TraceLock(const TraceLock&) = delete;
    TraceLock& operator=(const TraceLock&) = delete;
};

/// \param handle null or invalid if nothing was created, which isn't noted.
template<typename Handle>
Handle Create(const char* kind, Handle handle)
{
    const auto* key = reinterpret_cast<const void*>(handle);
    if (key != nullptr && key != INVALID_HANDLE_VALUE)
    {
        const TraceLock lock;
        const std::string name = std::string(kind) + " " + std::to_string(++trace.created[kind]);
        trace.open[key] = name;
        trace.calls.push_back({GetCurrentThreadId(), "create " + name});
    }
    return handle;
}

void Use(const char* verb, const void* handle)
{
    const TraceLock lock;
    const auto found = trace.open.find(handle);
    const std::string name = found == trace.open.end() ? "something else" : found->second;
    trace.calls.push_back({GetCurrentThreadId(), std::string(verb) + " " + name});
}

/// To be called before the OS can give the same value to another thread.
void Close(const char* verb, const void* handle)
{
    Use(verb, handle);
    const TraceLock lock;
    trace.failedCloses += trace.open.erase(handle) == 0;
}

HANDLE WINAPI TraceEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name)
{
    return Create("event", CreateEventW(security, manual, set, name));
}

HANDLE WINAPI TraceSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG maximum, const wchar_t* name)
{
    return Create("semaphore", CreateSemaphoreW(security, count, maximum, name));
}

HANDLE WINAPI TraceMutex(SECURITY_ATTRIBUTES* security, BOOL owned, const wchar_t* name)
{
    return Create("mutex", CreateMutexW(security, owned, name));
}

HANDLE WINAPI TraceMapping(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD high,
                           DWORD low, const wchar_t* name)
{
    return Create("mapping", CreateFileMappingW(file, security, protection, high, low, name));
}

void* WINAPI TraceView(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size)
{
    return Create("view", MapViewOfFile(mapping, access, high, low, size));
}

HANDLE WINAPI TraceFile(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                        DWORD disposition, DWORD flags, HANDLE model)
{
    return Create("file", CreateFileW(path, access, share, security, disposition, flags, model));
}

HANDLE WINAPI TracePipe(const wchar_t* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                        DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* security)
{
    return Create("pipe",
                  CreateNamedPipeW(name, openMode, pipeMode, instances, outSize, inSize, timeout, security));
}

using ThreadFunction = unsigned(__stdcall*)(void*);
using BeginThread = uintptr_t(__cdecl*)(void*, unsigned, ThreadFunction, void*, unsigned, unsigned*);

uintptr_t __cdecl TraceThread(void* security, unsigned stackSize, ThreadFunction function, void* argument,
                              unsigned flags, unsigned* id)
{
    static const auto begin = reinterpret_cast<BeginThread>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ucrtbase.dll"), "_beginthreadex")));
    return Create("thread", begin(security, stackSize, function, argument, flags, id));
}

HANDLE WINAPI TraceOpenedThread(DWORD access, BOOL inherit, DWORD id)
{
    return Create("opened thread", OpenThread(access, inherit, id));
}

BOOL WINAPI TraceProcess(const wchar_t* path, wchar_t* commandLine, SECURITY_ATTRIBUTES* ofProcess,
                         SECURITY_ATTRIBUTES* ofThread, BOOL inherit, DWORD flags, void* environment,
                         const wchar_t* folder, STARTUPINFOW* startup, PROCESS_INFORMATION* information)
{
    if (!CreateProcessW(path, commandLine, ofProcess, ofThread, inherit, flags, environment, folder, startup,
                        information))
    {
        return FALSE;
    }
    Create("process", information->hProcess);
    Create("first thread", information->hThread);
    return TRUE;
}

BOOL WINAPI TraceSet(HANDLE event)
{
    Use("set", event);
    return SetEvent(event);
}

BOOL WINAPI TraceReset(HANDLE event)
{
    Use("reset", event);
    return ResetEvent(event);
}

DWORD WINAPI TraceWait(HANDLE handle, DWORD milliseconds)
{
    Use("wait for", handle);
    return WaitForSingleObject(handle, milliseconds);
}

BOOL WINAPI TraceRelease(HANDLE semaphore, LONG count, LONG* previous)
{
    Use("release", semaphore);
    return ReleaseSemaphore(semaphore, count, previous);
}

BOOL WINAPI TraceCancel(HANDLE thread)
{
    Use("cancel", thread);
    return CancelSynchronousIo(thread);
}

BOOL WINAPI TraceFlush(HANDLE file)
{
    Use("flush", file);
    return FlushFileBuffers(file);
}

BOOL WINAPI TraceDisconnect(HANDLE pipe)
{
    Use("disconnect", pipe);
    return DisconnectNamedPipe(pipe);
}

BOOL WINAPI TraceClose(HANDLE handle)
{
    Close("close", handle);
    return CloseHandle(handle);
}

BOOL WINAPI TraceUnmap(const void* view)
{
    Close("unmap", view);
    return UnmapViewOfFile(view);
}
} // namespace

HandleTrace::HandleTrace(void* module)
{
    const auto replace = [&](const char* name, auto* function) {
        replaced.push_back(std::make_unique<ReplacedImport>(module, name, reinterpret_cast<void*>(function)));
    };
    replace("CreateEventW", TraceEvent);
    replace("CreateSemaphoreW", TraceSemaphore);
    replace("CreateMutexW", TraceMutex);
    replace("CreateFileMappingW", TraceMapping);
    replace("MapViewOfFile", TraceView);
    replace("CreateFileW", TraceFile);
    replace("CreateNamedPipeW", TracePipe);
    replace("_beginthreadex", TraceThread);
    replace("OpenThread", TraceOpenedThread);
    replace("CreateProcessW", TraceProcess);
    replace("SetEvent", TraceSet);
    replace("ResetEvent", TraceReset);
    replace("WaitForSingleObject", TraceWait);
    replace("ReleaseSemaphore", TraceRelease);
    replace("CancelSynchronousIo", TraceCancel);
    replace("FlushFileBuffers", TraceFlush);
    replace("DisconnectNamedPipe", TraceDisconnect);
    replace("CloseHandle", TraceClose);
    replace("UnmapViewOfFile", TraceUnmap);
}

std::vector<std::string> HandleTrace::OwnCalls() const
{
    const TraceLock lock;
    std::vector<std::string> own;
    for (const Call& call : trace.calls)
    {
        if (call.threadId == GetCurrentThreadId())
        {
            own.push_back(call.text);
        }
    }
    return own;
}

void HandleTrace::Note(const std::string& call)
{
    const TraceLock lock;
    trace.calls.push_back({GetCurrentThreadId(), call});
}

bool HandleTrace::IsBefore(const std::string& text, const std::string& other) const
{
    const TraceLock lock;
    const auto find = [](const std::string& wanted) {
        return std::find_if(trace.calls.begin(), trace.calls.end(),
                            [&](const Call& call) { return call.text == wanted; });
    };
    return find(text) < find(other) && find(other) != trace.calls.end();
}

size_t HandleTrace::Count(const std::string& text) const
{
    const TraceLock lock;
    size_t count = 0;
    for (const Call& call : trace.calls)
    {
        count += call.text == text;
    }
    return count;
}

std::vector<std::string> HandleTrace::OpenHandles() const
{
    const TraceLock lock;
    std::vector<std::string> names;
    for (const auto& handle : trace.open)
    {
        names.push_back(handle.second);
    }
    return names;
}

size_t HandleTrace::FailedCloses() const
{
    const TraceLock lock;
    return trace.failedCloses;
}
} // namespace Torvane::Testing
