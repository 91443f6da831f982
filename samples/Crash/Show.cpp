#include "samples/Crash/Show.h"

#include <stdarg.h>
#include <stdio.h>

#include <windows.h>

namespace Torvane::Sample
{
namespace
{
HANDLE file = INVALID_HANDLE_VALUE;
} // namespace

bool StartShow()
{
    wchar_t path[MAX_PATH] = {};
    GetEnvironmentVariableW(L"TORVANE_CRASH_LOG", path, MAX_PATH);
    file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0,
                       nullptr);
    return file != INVALID_HANDLE_VALUE;
}

void Show(const char* tag, const char* format, ...)
{
    char line[242];
    int length = snprintf(line, sizeof(line) - 1, "%s  ", tag);
    va_list arguments;
    va_start(arguments, format);
    const int added =
        vsnprintf(line + length, sizeof(line) - 1 - static_cast<size_t>(length), format, arguments);
    va_end(arguments);
    const int room = static_cast<int>(sizeof(line)) - 2 - length;
    length += added < room ? added : room;
    line[length++] = '\n';
    DWORD written = 0;
    WriteFile(file, line, static_cast<DWORD>(length), &written, nullptr);
}
} // namespace Torvane::Sample
