#include "Agent/Exception/Windows/ResumeAtFrame.h"

#include "Shared/Foundation/Logger.h"
#include "Shared/OS/Windows/WindowsInternalAPI.h"

/// Unwinds the top-most structured exception frame and returns as any function does. In ResumeAtFrame.S.
extern "C" void __cdecl TorvaneUnwindTopFrame(EXCEPTION_RECORD* record);

namespace Torvane
{
void ResumeAtFrame(EXCEPTION_POINTERS& exception, const ResumeRecord& target, DWORD lastError)
{
    TorvaneUnwindTopFrame(exception.ExceptionRecord);

    CONTEXT& context = *exception.ContextRecord;
    context.Eip = static_cast<DWORD>(target.instructionPointer);
    context.Esp = static_cast<DWORD>(target.stackPointer);
    context.Ebp = static_cast<DWORD>(target.framePointer);
    SetLastError(lastError);
    const NTSTATUS status = GetWindowsInternalAPI().NtContinue(&context, BOOLEAN{FALSE});
    if (status < 0)
    {
        LogError(TVN_HERE, "Call to function NtContinue failed. Error: 0x%X", status);
    }
}
} // namespace Torvane
