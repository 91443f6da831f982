#include "Shared/OS/Windows/WindowsInternalAPI.h"

namespace Torvane
{
WindowsInternalAPI windowsInternalAPI = {};

namespace
{
bool tableConstructed = false;
constexpr char nativeModule[] = "ntdll.dll";
} // namespace

void StartupWindowsInternalAPI()
{
    windowsInternalAPI.NtSuspendProcess.Resolve(nativeModule, "NtSuspendProcess");
    windowsInternalAPI.NtResumeProcess.Resolve(nativeModule, "NtResumeProcess");
    windowsInternalAPI.NtReadVirtualMemory.Resolve(nativeModule, "NtReadVirtualMemory");
    windowsInternalAPI.NtWriteVirtualMemory.Resolve(nativeModule, "NtWriteVirtualMemory");
    windowsInternalAPI.NtQuerySystemInformation.Resolve(nativeModule, "NtQuerySystemInformation");
    windowsInternalAPI.NtQueryInformationProcess.Resolve(nativeModule, "NtQueryInformationProcess");
    windowsInternalAPI.NtQueryVirtualMemory.Resolve(nativeModule, "NtQueryVirtualMemory");
    windowsInternalAPI.NtQueryDirectoryFile.Resolve(nativeModule, "NtQueryDirectoryFile");
    windowsInternalAPI.NtQueryInformationFile.Resolve(nativeModule, "NtQueryInformationFile");
    windowsInternalAPI.NtContinue.Resolve(nativeModule, "NtContinue");
    windowsInternalAPI.RtlGetVersion.Resolve(nativeModule, "RtlGetVersion");
    windowsInternalAPI.LdrRegisterDllNotification.Resolve(nativeModule, "LdrRegisterDllNotification");
    windowsInternalAPI.LdrUnregisterDllNotification.Resolve(nativeModule, "LdrUnregisterDllNotification");
    windowsInternalAPI.SetThreadDescription.Resolve("KernelBase.dll", "SetThreadDescription");
    tableConstructed = true;
}

void ShutdownWindowsInternalAPI()
{
    tableConstructed = false;
}
} // namespace Torvane
