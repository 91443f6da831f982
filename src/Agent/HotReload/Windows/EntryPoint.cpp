#include "Agent/HotReload/Windows/EntryPoint.h"

#include "Agent/Exception/Windows/ExceptionHandler.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Windows/StructuredException.h"
#include "Shared/Process/Windows/ProcessMemory.h"

#include <windows.h>

namespace Torvane
{
namespace
{
using LibraryEntryPoint = BOOL(WINAPI*)(void* base, DWORD reason, void* reserved);

struct EntryPointCall
{
    LibraryEntryPoint entryPoint;
    void* base;
};

void Call(void* context)
{
    const EntryPointCall* call = static_cast<const EntryPointCall*>(context);
    call->entryPoint(call->base, DLL_PROCESS_ATTACH, nullptr);
}
} // namespace

void CallEntryPoint(const CallEntryPointBlob& blob)
{
    const uintptr_t base = static_cast<uintptr_t>(blob.base);
    const uintptr_t entryPoint = base + static_cast<uintptr_t>(blob.entryPoint);
    void* code = reinterpret_cast<void*>(entryPoint);

    WriteCode(code, blob.codeBefore, entryPointCodeSize);
    {
        const ScopedExceptionHandlerSuspension suspension;
        EntryPointCall call = {reinterpret_cast<LibraryEntryPoint>(entryPoint),
                               reinterpret_cast<void*>(base)};
        if (!RunInExceptionFrame(Call, &call))
        {
            LogError(TVN_HERE, "Exception thrown while calling the patch entry point");
        }
    }
    WriteCode(code, blob.codeAfter, entryPointCodeSize);
}
} // namespace Torvane
