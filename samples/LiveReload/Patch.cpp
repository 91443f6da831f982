/// \file
/// What a patch has beside the changed function: an entry point that shows when it runs.
///
/// The Bridge exchanges the first bytes of the entry point, so the loader must not relocate them. Those of the
/// runtime library's entry point it does relocate, which is why there is one in front of it.

#include "Output.h"

#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        PrintLine("patch", "the patch's entry point runs");
    }
    return TRUE;
}

extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE module, DWORD reason, void* reserved);

extern "C" BOOL WINAPI PatchEntryPoint(HINSTANCE module, DWORD reason, void* reserved)
{
    return DllMainCRTStartup(module, reason, reserved);
}
