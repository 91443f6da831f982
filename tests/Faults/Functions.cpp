#include "Functions.h"

#include <windows.h>

namespace Torvane::Faults
{
namespace
{
/// As a handle, a value that the host has given to an event of its own: see `HostState`.
constexpr uint32_t noResources = ERROR_NO_SYSTEM_RESOURCES;
constexpr uint32_t noStatus = 0xC000009A; ///< STATUS_INSUFFICIENT_RESOURCES
constexpr uint32_t invalidHandle = 0xFFFFFFFF;

constexpr Function Fails(const char* name, uint16_t argumentBytes, uint32_t result, uint32_t lastError)
{
    return {name, argumentBytes, result, lastError, false};
}

/// A function of the runtime: its caller removes the arguments.
constexpr Function RuntimeFails(const char* name, uint32_t lastError)
{
    return Fails(name, 0, 0, lastError);
}

constexpr Function Resolved(const char* name, uint16_t argumentBytes, uint32_t result = noStatus)
{
    return {name, argumentBytes, result, ERROR_SUCCESS, true};
}

constexpr Function functions[] = {
    // Objects
    Fails("CloseHandle", 4, FALSE, ERROR_INVALID_HANDLE), Fails("CreateEventW", 16, 0, noResources),
    Fails("CreateMutexW", 12, 0, noResources), Fails("CreateSemaphoreW", 16, 0, noResources),
    Fails("ReleaseMutex", 4, FALSE, ERROR_NOT_OWNER),
    Fails("ReleaseSemaphore", 12, FALSE, ERROR_TOO_MANY_POSTS),
    Fails("ResetEvent", 4, FALSE, ERROR_INVALID_HANDLE), Fails("SetEvent", 4, FALSE, ERROR_INVALID_HANDLE),
    Fails("WaitForSingleObject", 8, WAIT_FAILED, ERROR_INVALID_HANDLE),
    // Files and pipes
    Fails("CancelSynchronousIo", 4, FALSE, ERROR_NOT_FOUND), Fails("ConnectNamedPipe", 8, FALSE, noResources),
    Fails("CreateFileMappingW", 24, 0, noResources),
    Fails("CreateFileW", 28, invalidHandle, ERROR_ACCESS_DENIED),
    Fails("CreateNamedPipeW", 32, invalidHandle, ERROR_PIPE_BUSY),
    Fails("DisconnectNamedPipe", 4, FALSE, ERROR_INVALID_HANDLE),
    Fails("FlushFileBuffers", 4, FALSE, ERROR_INVALID_HANDLE),
    Fails("GetCurrentDirectoryW", 8, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("GetFileAttributesExW", 12, FALSE, ERROR_ACCESS_DENIED),
    Fails("GetFileInformationByHandle", 8, FALSE, ERROR_INVALID_FUNCTION),
    Fails("GetFinalPathNameByHandleW", 16, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("MapViewOfFile", 20, 0, ERROR_NOT_ENOUGH_MEMORY), Fails("ReadFile", 20, FALSE, noResources),
    Fails("SHGetKnownFolderPath", 16, 0x80004005, ERROR_SUCCESS),
    Fails("UnmapViewOfFile", 4, FALSE, ERROR_INVALID_ADDRESS), Fails("WriteFile", 20, FALSE, ERROR_DISK_FULL),
    // Memory
    Fails("FlushInstructionCache", 12, FALSE, ERROR_INVALID_PARAMETER),
    Fails("HeapAlloc", 12, 0, ERROR_NOT_ENOUGH_MEMORY), Fails("HeapCreate", 12, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("HeapDestroy", 4, FALSE, ERROR_INVALID_HANDLE),
    Fails("HeapFree", 12, FALSE, ERROR_INVALID_PARAMETER), Fails("HeapLock", 4, FALSE, ERROR_INVALID_HANDLE),
    Fails("VirtualAlloc", 16, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("VirtualFree", 12, FALSE, ERROR_INVALID_ADDRESS),
    Fails("VirtualProtect", 16, FALSE, ERROR_INVALID_ADDRESS),
    Fails("VirtualQuery", 12, 0, ERROR_INVALID_PARAMETER), RuntimeFails("calloc", ERROR_NOT_ENOUGH_MEMORY),
    RuntimeFails("malloc", ERROR_NOT_ENOUGH_MEMORY),
    // Processes, threads and modules
    Fails("AddVectoredExceptionHandler", 8, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("CreateProcessW", 40, FALSE, ERROR_NOT_ENOUGH_MEMORY),
    Fails("FreeLibrary", 4, FALSE, ERROR_MOD_NOT_FOUND),
    Fails("GetModuleFileNameW", 12, 0, ERROR_MOD_NOT_FOUND),
    Fails("GetModuleHandleA", 4, 0, ERROR_MOD_NOT_FOUND),
    Fails("GetModuleHandleExW", 12, FALSE, ERROR_MOD_NOT_FOUND),
    Fails("GetModuleHandleW", 4, 0, ERROR_MOD_NOT_FOUND), Fails("GetProcAddress", 8, 0, ERROR_PROC_NOT_FOUND),
    Fails("GetThreadId", 4, 0, ERROR_INVALID_HANDLE),
    Fails("K32GetModuleInformation", 16, FALSE, ERROR_INVALID_HANDLE),
    Fails("LoadLibraryA", 4, 0, ERROR_MOD_NOT_FOUND), Fails("LoadLibraryW", 4, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("OpenThread", 12, 0, ERROR_ACCESS_DENIED),
    Fails("RemoveVectoredExceptionHandler", 4, 0, ERROR_SUCCESS),
    Fails("TerminateProcess", 8, FALSE, ERROR_ACCESS_DENIED),
    Fails("TlsGetValue", 4, 0, ERROR_INVALID_PARAMETER),
    RuntimeFails("_beginthreadex", ERROR_NOT_ENOUGH_MEMORY),
    // Others
    Fails("FormatMessageA", 28, 0, ERROR_RESOURCE_LANG_NOT_FOUND),
    Fails("GetLogicalProcessorInformationEx", 12, FALSE, ERROR_INVALID_FUNCTION),
    Fails("MessageBoxA", 16, 0, ERROR_NOT_ENOUGH_MEMORY),
    Fails("QueryPerformanceCounter", 4, FALSE, ERROR_INVALID_FUNCTION),
    Fails("QueryPerformanceFrequency", 4, FALSE, ERROR_INVALID_FUNCTION),
    // Resolved at run time
    Resolved("LdrRegisterDllNotification", 16), Resolved("LdrUnregisterDllNotification", 4),
    Resolved("NtContinue", 8), Resolved("NtQueryDirectoryFile", 44), Resolved("NtQueryInformationFile", 20),
    Resolved("NtQueryInformationProcess", 20), Resolved("NtQuerySystemInformation", 16),
    Resolved("NtQueryVirtualMemory", 24), Resolved("NtReadVirtualMemory", 20), Resolved("NtResumeProcess", 4),
    Resolved("NtSuspendProcess", 4), Resolved("NtWriteVirtualMemory", 20), Resolved("RtlGetVersion", 4),
    Resolved("SetThreadDescription", 8, 0x8007000E), // E_OUTOFMEMORY
};

constexpr LeftOut leftOut[] = {
    {"has no failure to report",
     "AcquireSRWLockExclusive CoTaskMemFree DeleteCriticalSection EnterCriticalSection "
     "GetCommandLineW GetCurrentProcess GetCurrentProcessId GetCurrentThread GetCurrentThreadId "
     "GetLastError GetProcessHeap GetSystemInfo GetSystemTimeAsFileTime "
     "InitializeCriticalSection InitializeSRWLock IsDebuggerPresent LeaveCriticalSection "
     "OutputDebugStringA OutputDebugStringW RaiseException ReleaseSRWLockExclusive RtlUnwind "
     "SetLastError Sleep free "},
    {"fails only if there is nothing to unlock", "HeapUnlock "},
    {"computes, without the OS",
     "mbstowcs_s memchr memcmp memcpy memset qsort strcmp strlen strncmp wcslen wcsstr "
     "wcstombs_s "},
    {"doesn't return", "ExitProcess _exit abort exit "},
    {"is called while the runtime starts or ends, or by nothing",
     "__acrt_iob_func __daylight __p___argc __p___argv __p___wargv __p__environ __p__wenviron "
     "__stdio_common_vfprintf __stdio_common_vfwprintf __timezone __tzname "
     "_configure_narrow_argv _configure_wide_argv _crt_at_quick_exit _crt_atexit "
     "_execute_onexit_table _initialize_narrow_environment _initialize_onexit_table "
     "_initialize_wide_environment _initterm _register_onexit_function _set_new_mode _tzset "
     "fwrite "},
};
} // namespace

Rows<Function> GetFunctions()
{
    return functions;
}

Rows<LeftOut> GetLeftOut()
{
    return leftOut;
}
} // namespace Torvane::Faults
