#include "samples/Complete/Log.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

void Log(const char* format, ...)
{
    char line[252];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line) - 1, format, arguments);
    va_end(arguments);
    strcat(line, "\n");

    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    wcscpy(wcsrchr(path, L'\\') + 1, L"complete.log");
    // Opened for each line: several processes write to it.
    const HANDLE file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD count = 0;
    WriteFile(file, line, static_cast<DWORD>(strlen(line)), &count, nullptr);
    CloseHandle(file);
}
