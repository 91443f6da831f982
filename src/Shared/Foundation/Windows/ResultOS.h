#pragma once

/// \file
/// Failures of the OS: the maker of a failed `Result`, and the log call for those who need none. Any thread.

#include "Shared/Foundation/Logger.h"
#include "Shared/Foundation/Result.h"

#include <windows.h>

namespace Torvane
{
/// The system's text for an error code, as it comes, with its line break; the word "unknown" if there is none.
class OSErrorText
{
public:
    explicit OSErrorText(DWORD code);

    const char* Get() const
    {
        return text;
    }

private:
    char buffer[4096];
    const char* text;
};

/// Logs the last error and its text at Debug level, under this header's position. Never part of its caller, which would
/// need stack for the text even where nothing fails: some of them run on hardly any.
/// \return the last error.
__attribute__((noinline)) inline DWORD LogOSError()
{
    const DWORD code = GetLastError();
    LogDebug(TVN_HERE, "Error: %u, 0x%X: %hs", code, code, OSErrorText(code).Get());
    return code;
}

/// Logs the filled format, then the last error and its text, at Debug level and under this header's position. The last
/// error is read only after the first log call.
/// \return a failure with the format and the last error.
template<typename... Arguments>
Failure MakeOSError(FormatOf<Arguments...> format, Arguments... arguments)
{
    LogDebug(TVN_HERE, format, arguments...);
    return {format.Get(), LogOSError()};
}

namespace Unchecked
{
void LogLastError(const char* file, int32_t line, const char* format, ...);
}

/// Logs the filled format, then the last error and its text, at Error level and under the caller's position. The last
/// error is read first of all.
template<typename... Arguments>
void LogLastError(const char* file, int32_t line, FormatOf<Arguments...> format, Arguments... arguments)
{
    Unchecked::LogLastError(file, line, format.Get(), arguments...);
}
} // namespace Torvane
