/// \file
/// A patch's entry point, which prints a line when it runs.
///
/// The Bridge replaces the first bytes of the entry point, so the loader mustn't relocate them. It does relocate those of
/// the runtime library's entry point: hence one of our own, which calls that one.

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
