#include "Shared/Foundation/Windows/ResultOS.h"

#include <stdarg.h>
#include <string.h>

namespace Torvane
{
OSErrorText::OSErrorText(DWORD code)
    : text(buffer)
{
    memset(buffer, 0, sizeof(buffer));
    if (FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, buffer, sizeof(buffer), nullptr) == 0)
    {
        text = "unknown";
    }
}

void Unchecked::LogLastError(const char* file, int32_t line, const char* format, ...)
{
    const DWORD code = GetLastError();
    va_list arguments;
    va_start(arguments, format);
    LogV(LogLevel::Error, 0, file, line, format, arguments);
    va_end(arguments);
    LogError(file, line, "Error: %u, 0x%X: %hs", code, code, OSErrorText(code).Get());
}
} // namespace Torvane
