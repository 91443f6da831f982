/// \file
/// A library whose entry point takes as long as the host of the test wants.
///
/// Environment variables: `TORVANE_TEST_LOAD_TIME`, in milliseconds, and `TORVANE_TEST_LOAD_FAILS`, which refuses
/// the load afterwards if it is "1".

#include <stdlib.h>

#include <windows.h>

namespace
{
DWORD NumberOf(const char* name)
{
    char text[16] = {};
    GetEnvironmentVariableA(name, text, sizeof(text));
    return strtoul(text, nullptr, 10);
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    if (reason != DLL_PROCESS_ATTACH)
    {
        return TRUE;
    }
    Sleep(NumberOf("TORVANE_TEST_LOAD_TIME"));
    return NumberOf("TORVANE_TEST_LOAD_FAILS") == 0;
}
