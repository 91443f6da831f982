/* The entry point of a patch library that torvane_add_patch builds; in C and C++.
 *
 * A Bridge has the entry point run by the Agent and not by the loader. For that it replaces the first bytes in the file, so
 * the loader mustn't relocate them, which it does in the runtime library's entry point. This one calls that one. */
#include <windows.h>

#ifdef __cplusplus
extern "C"
{
#endif
BOOL WINAPI DllMainCRTStartup(HINSTANCE module, DWORD reason, void* reserved);
BOOL WINAPI TorvanePatchEntry(HINSTANCE module, DWORD reason, void* reserved);

BOOL WINAPI TorvanePatchEntry(HINSTANCE module, DWORD reason, void* reserved)
{
    return DllMainCRTStartup(module, reason, reserved);
}
#ifdef __cplusplus
}
#endif
