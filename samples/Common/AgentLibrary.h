#pragma once

/// \file
/// Loads the Agent's library; for the main thread of a host.

#include "Torvane/Agent.h"

#include <windows.h>

namespace Torvane::Sample
{
template<typename Function>
Function Find(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

/// Loads the library from this program's folder. \return null if it is missing or has another version.
inline HMODULE LoadAgent()
{
    const HMODULE library = LoadLibraryW(L"TVN_Agent_x86.dll");
    const auto checkVersion = Find<decltype(&TvnCheckVersion)>(library, "TvnCheckVersion");
    return checkVersion != nullptr && checkVersion(TVN_VERSION) ? library : nullptr;
}
} // namespace Torvane::Sample
