#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// With which arguments startup asks the OS for what it needs.

#if TORVANE_HOST_HALF

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

namespace
{
SRWLOCK lock = SRWLOCK_INIT;
std::vector<std::string> requests; ///< by any thread, in their order

void Note(const char* format, ...)
{
    char text[1024] = {};
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    AcquireSRWLockExclusive(&lock);
    requests.emplace_back(text);
    ReleaseSRWLockExclusive(&lock);
}

HANDLE WINAPI NoteEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name)
{
    Note("event %p %d %d %ls", static_cast<void*>(security), manual, set,
         name != nullptr ? name : L"unnamed");
    return CreateEventW(security, manual, set, name);
}

HANDLE WINAPI NoteSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG maximum, const wchar_t* name)
{
    Note("semaphore %ld %ld %ls", count, maximum, name != nullptr ? name : L"unnamed");
    return CreateSemaphoreW(security, count, maximum, name);
}

HANDLE WINAPI NoteMapping(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD high, DWORD low,
                          const wchar_t* name)
{
    if (file == INVALID_HANDLE_VALUE)
    {
        Note("mapping 0x%lX 0x%lX %ls", high, low, name);
    }
    return CreateFileMappingW(file, security, protection, high, low, name);
}

HANDLE WINAPI NoteMutex(SECURITY_ATTRIBUTES* security, BOOL owned, const wchar_t* name)
{
    Note("mutex %d %ls", owned, name);
    return CreateMutexW(security, owned, name);
}

HANDLE WINAPI NotePipe(const wchar_t* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                       DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* security)
{
    Note("pipe %ls 0x%lX 0x%lX %lu 0x%lX 0x%lX %lu %p", name, openMode, pipeMode, instances, outSize, inSize,
         timeout, static_cast<void*>(security));
    return CreateNamedPipeW(name, openMode, pipeMode, instances, outSize, inSize, timeout, security);
}

using ThreadFunction = unsigned(__stdcall*)(void*);
using BeginThread = uintptr_t(__cdecl*)(void*, unsigned, ThreadFunction, void*, unsigned, unsigned*);

/// A thread's block begins with its name.
uintptr_t __cdecl NoteThread(void* security, unsigned stackSize, ThreadFunction function, void* argument,
                             unsigned flags, unsigned* id)
{
    Note("thread 0x%X %s", stackSize, *static_cast<const char* const*>(argument));
    static const auto begin = reinterpret_cast<BeginThread>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ucrtbase.dll"), "_beginthreadex")));
    return begin(security, stackSize, function, argument, flags, id);
}

BOOL WINAPI NoteProcess(const wchar_t* path, wchar_t* commandLine, SECURITY_ATTRIBUTES* ofProcess,
                        SECURITY_ATTRIBUTES* ofThread, BOOL inherit, DWORD flags, void* environment,
                        const wchar_t* folder, STARTUPINFOW* startup, PROCESS_INFORMATION* information)
{
    Note("process %ls (%ls) in %ls", path, commandLine, folder);
    return CreateProcessW(path, commandLine, ofProcess, ofThread, inherit, flags, environment, folder,
                          startup, information);
}

class CreationTest : public LinkTest
{
protected:
    /// All requests of a run that connects, and shuts down.
    std::vector<std::string> Run()
    {
        UseDefaultBridge();
        StartWatchedAgent();
        ExpectStatus(ConnectionSucceeded);
        Shutdown();
        return requests;
    }

    const std::string identifier = std::to_string(GetCurrentProcessId());
};

using Requests = std::vector<std::string>;
} // namespace

#define CREATION(Name) HOST_TEST_OF(CreationTest, Creation, Name)

CREATION(OfEventsIsManualAndClear)
{
    ReplaceImport("CreateEventW", NoteEvent);
    // 14 of startup, and one for each pipe that is waited for.
    EXPECT_EQ(Requests(16, "event 00000000 1 0 unnamed"), Run());
}

CREATION(OfTheQueuesSemaphoresIsForAnEmptyQueue)
{
    ReplaceImport("CreateSemaphoreW", NoteSemaphore);
    EXPECT_EQ((Requests{"semaphore 4096 4096 unnamed", "semaphore 0 4096 unnamed"}), Run());
}

CREATION(OfThePipesIsForMessages)
{
    ReplaceImport("CreateNamedPipeW", NotePipe);
    EXPECT_EQ(
        (Requests{"pipe \\\\.\\pipe\\TVN_Agent" + identifier + " 0x3 0x6 255 0x20000 0x20000 0 00000000",
                  "pipe \\\\.\\pipe\\TVN_Bridge" + identifier + " 0x3 0x6 255 0x20000 0x20000 0 00000000"}),
        Run());
}

CREATION(OfSharedMemoryIsUnderTheHostsName)
{
    ReplaceImport("CreateFileMappingW", NoteMapping);
    ReplaceImport("CreateMutexW", NoteMutex);
    const Requests all = Run();
    EXPECT_EQ((Requests{"mapping 0x0 0x100000 TVN_AgentBridge_Memory_" + identifier,
                        "mutex 0 TVN_AgentBridge_Mutex_" + identifier,
                        "mapping 0x0 0x1000 TVN_Memory_" + identifier, "mutex 0 TVN_Mutex_" + identifier}),
              all);
}

CREATION(OfThreadsIsWithTheirNamesAndStacks)
{
    ReplaceImport("_beginthreadex", NoteThread);
    EXPECT_EQ(
        (Requests{"thread 0x4000 Torvane heartbeat", "thread 0x4000 Torvane watchdog",
                  "thread 0x10000 Torvane sender", "thread 0x10000 Torvane receiver",
                  "thread 0x10000 Torvane connect named pipe", "thread 0x10000 Torvane connect named pipe"}),
        Run());
}

CREATION(OfTheBridgeIsInTheAgentsFolderForTheHostsProcess)
{
    ReplaceImport("CreateProcessW", NoteProcess);
    const std::wstring wide = AgentFolder();
    const std::string folder(wide.begin(), wide.end());
    EXPECT_EQ(
        (Requests{"process " + folder + "\\TVN_Agent_Bridge_x64.exe (" + identifier + ") in " + folder}),
        Run());
}

#endif
