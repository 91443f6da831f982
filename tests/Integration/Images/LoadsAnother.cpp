/// \file
/// A library whose entry point loads another one, and frees it when it goes.
///
/// Environment variable: `TORVANE_TEST_OTHER_LIBRARY`, the other one's path.

#include <windows.h>

namespace
{
HMODULE other;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* ending)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        wchar_t path[MAX_PATH] = {};
        GetEnvironmentVariableW(L"TORVANE_TEST_OTHER_LIBRARY", path, MAX_PATH);
        other = LoadLibraryW(path);
    }
    else if (reason == DLL_PROCESS_DETACH && ending == nullptr)
    {
        FreeLibrary(other);
    }
    return TRUE;
}
