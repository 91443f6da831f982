#include "Shared/Process/Windows/Thread.h"

#include "Shared/Container/OwnedString.h"
#include "Shared/Foundation/Windows/StructuredException.h"
#include "Shared/OS/Windows/WindowsInternalAPI.h"

namespace Torvane
{
namespace
{
/// The exception that tells a debugger a thread's name, and its arguments, as published for Visual Studio.
constexpr DWORD threadNameException = 0x406D1388;
constexpr ULONG_PTR threadNameRecordType = 0x1000;
constexpr ULONG_PTR currentThread = 0xFFFFFFFF;

void RaiseThreadName(void* name)
{
    const ULONG_PTR arguments[] = {threadNameRecordType, reinterpret_cast<ULONG_PTR>(name), currentThread, 0};
    RaiseException(threadNameException, 0, 4, arguments);
}
} // namespace

void SetCurrentThreadName(const char* name)
{
    if (GetWindowsInternalAPI().SetThreadDescription)
    {
        const OwnedWideString wideName = WideFromNarrow(name);
        const HRESULT result =
            GetWindowsInternalAPI().SetThreadDescription(GetCurrentThread(), wideName.pointer);
        if (result < 0)
        {
            LogError(TVN_HERE, "Call to function SetThreadDescription failed. Error: 0x%X", result);
        }
    }
    RunInExceptionFrame(RaiseThreadName, const_cast<char*>(name));
}

void WaitForThread(HANDLE& thread)
{
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    thread = INVALID_HANDLE_VALUE;
}
} // namespace Torvane
