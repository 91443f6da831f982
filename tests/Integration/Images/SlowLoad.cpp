/// \file
/// A library whose entry point takes as long as the host of the test wants.
///
/// Environment variables: `TORVANE_TEST_LOAD_TIME`, in milliseconds; `TORVANE_TEST_LOAD_FAILS`, which refuses the
/// load afterwards if it is "1"; `TORVANE_TEST_LOAD_WORD`, the address of a word that is 1 meanwhile, and 2 then.

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
    volatile DWORD none = 0;
    const DWORD address = NumberOf("TORVANE_TEST_LOAD_WORD");
    volatile DWORD& word = address == 0 ? none : *reinterpret_cast<volatile DWORD*>(address);
    word = 1;
    Sleep(NumberOf("TORVANE_TEST_LOAD_TIME"));
    word = 2;
    return NumberOf("TORVANE_TEST_LOAD_FAILS") == 0;
}
