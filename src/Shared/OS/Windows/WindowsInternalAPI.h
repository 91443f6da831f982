#pragma once

/// \file
/// The OS functions that are resolved at run time instead of linked. Filled at startup, then read by any thread.
///
/// Signatures: the published documentation of the native API. Of all entries, callers check `SetThreadDescription` alone
/// before a call.

#include "Shared/OS/Windows/WindowsFunction.h"

#include <windows.h>

#include <winternl.h>

namespace Torvane
{
/// What `NtQueryVirtualMemory` returns; the native API's `MEMORY_INFORMATION_CLASS`.
enum MemoryInformationClass : ULONG
{
    MemoryBasicInformation = 0, ///< a `MEMORY_BASIC_INFORMATION`
};

struct WindowsInternalAPI
{
    WindowsFunction<NTSTATUS NTAPI(HANDLE process)> NtSuspendProcess;
    WindowsFunction<NTSTATUS NTAPI(HANDLE process)> NtResumeProcess;
    WindowsFunction<NTSTATUS NTAPI(HANDLE process, const void* address, void* buffer, SIZE_T size,
                                   SIZE_T* read)>
        NtReadVirtualMemory;
    WindowsFunction<NTSTATUS NTAPI(HANDLE process, void* address, const void* buffer, SIZE_T size,
                                   SIZE_T* written)>
        NtWriteVirtualMemory;
    WindowsFunction<NTSTATUS NTAPI(ULONG informationClass, void* information, ULONG size, ULONG* returned)>
        NtQuerySystemInformation;
    WindowsFunction<NTSTATUS NTAPI(HANDLE process, PROCESSINFOCLASS informationClass, void* information,
                                   ULONG size, ULONG* returned)>
        NtQueryInformationProcess;
    WindowsFunction<NTSTATUS NTAPI(HANDLE process, const void* address,
                                   MemoryInformationClass informationClass, void* information, SIZE_T size,
                                   SIZE_T* returned)>
        NtQueryVirtualMemory;
    WindowsFunction<NTSTATUS NTAPI(HANDLE file, HANDLE event, void* routine, void* context, void* status,
                                   void* information, ULONG size, ULONG informationClass, BOOLEAN single,
                                   void* name, BOOLEAN restart)>
        NtQueryDirectoryFile;
    WindowsFunction<NTSTATUS NTAPI(HANDLE file, void* status, void* information, ULONG size,
                                   ULONG informationClass)>
        NtQueryInformationFile;
    WindowsFunction<NTSTATUS NTAPI(CONTEXT* context, BOOLEAN testAlert)> NtContinue;
    WindowsFunction<NTSTATUS NTAPI(OSVERSIONINFOW* version)> RtlGetVersion;
    WindowsFunction<NTSTATUS NTAPI(ULONG flags, void* routine, void* context, void** cookie)>
        LdrRegisterDllNotification;
    WindowsFunction<NTSTATUS NTAPI(void* cookie)> LdrUnregisterDllNotification;
    WindowsFunction<HRESULT WINAPI(HANDLE thread, const wchar_t* description)> SetThreadDescription;
};
static_assert(sizeof(WindowsInternalAPI) == 14 * sizeof(void*));

/// Fills the table, entry by entry in its order, with one Error line for each entry whose module isn't loaded. Host's
/// thread, at startup. The entries stay valid until the process ends, so there is nothing to shut down.
void StartupWindowsInternalAPI();

/// \return the one table of the process; its entries are null before startup.
const WindowsInternalAPI& GetWindowsInternalAPI();
} // namespace Torvane
