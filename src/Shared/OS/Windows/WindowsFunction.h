#pragma once

/// \file
/// One function of the OS, found by name at run time.

#include "Shared/Foundation/Logger.h"

#include <windows.h>

namespace Torvane
{
/// A function pointer of the type `Signature`, null if the function wasn't found.
template<typename Signature>
struct WindowsFunction
{
    Signature* pointer;

    /// Looks the function up in a module that the process has loaded already. A missing module logs "Cannot get handle
    /// for module %hs", a missing function nothing.
    void Resolve(const char* moduleName, const char* functionName)
    {
        const HMODULE module = GetModuleHandleA(moduleName);
        if (module == nullptr)
        {
            LogError(TVN_HERE, "Cannot get handle for module %hs", moduleName);
            pointer = nullptr;
            return;
        }
        pointer = reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(module, functionName)));
    }

    explicit operator bool() const
    {
        return pointer != nullptr;
    }

    template<typename... Arguments>
    auto operator()(Arguments... arguments) const
    {
        return pointer(arguments...);
    }
};
} // namespace Torvane
