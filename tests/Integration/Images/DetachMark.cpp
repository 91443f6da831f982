/// \file
/// A library that records when the process unloads it: it appends a line to the file that the environment variable
/// `TORVANE_TEST_MARKS` names.

#include <windows.h>

namespace
{
wchar_t path[MAX_PATH];
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        GetEnvironmentVariableW(L"TORVANE_TEST_MARKS", path, MAX_PATH);
    }
    if (reason == DLL_PROCESS_DETACH)
    {
        const HANDLE file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_ALWAYS, 0, nullptr);
        DWORD count = 0;
        WriteFile(file, "library detach\n", 15, &count, nullptr);
        CloseHandle(file);
    }
    return TRUE;
}
