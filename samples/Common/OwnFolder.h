#pragma once

/// \file
/// Finds the folder of this program; any thread.

#include <string>

#include <windows.h>

namespace Torvane::Sample
{
/// With a backslash at its end.
inline std::wstring OwnFolder()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring program = path;
    return program.substr(0, program.find_last_of(L'\\') + 1);
}
} // namespace Torvane::Sample
