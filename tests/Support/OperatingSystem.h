#pragma once

/// \file
/// What differs between Wine, where the tests have run, and Windows, where they haven't: the one place where a test asks for
/// it. Each function says what Windows is expected to do. Any thread.

#include <stdint.h>

#include <windows.h>

namespace Torvane::Testing
{
/// Whether this is Wine, whose ntdll.dll has an export that that of Windows lacks.
inline bool RunsUnderWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

/// Whether the header of the process's heap has a pointer to its lock, at 0xC8 or 0xCC. On Windows it has one in 32-bit
/// processes.
inline bool HeapHeaderHasLock()
{
    return !RunsUnderWine();
}

/// Whether `GetProcessHandleCount` counts. On Windows it does; Wine's gives 0.
inline bool CountsHandles()
{
    return !RunsUnderWine();
}

/// Whether all reserved address space of a process is its own. On Windows it is; Wine has reserves, without a protection
/// that they were allocated with.
inline bool ReservesBelongToTheProcess()
{
    return !RunsUnderWine();
}

/// The error of `WriteFile` and of `ConnectNamedPipe` for a pipe whose client has closed its end. Windows documents it for
/// the latter, and is expected to have it for both. To the Agent it is no ordinary end of the link.
constexpr uint32_t closedPipeError = ERROR_NO_DATA;
} // namespace Torvane::Testing
