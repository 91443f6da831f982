#pragma once

/// \file
/// Functions of the OS that are resolved by name at run time. Any thread.

#include "Shared/Foundation/Logger.h"

#include <windows.h>

namespace Torvane
{
/// \return the function of a module that the process has loaded already; null if the module is missing, which logs one
/// Error line, or if it has no such function, which logs nothing.
inline void* FindWindowsFunction(const char* moduleName, const char* functionName)
{
    const HMODULE module = GetModuleHandleA(moduleName);
    if (module == nullptr)
    {
        LogError(TVN_HERE, "Cannot get handle for module %hs", moduleName);
        return nullptr;
    }
    return reinterpret_cast<void*>(GetProcAddress(module, functionName));
}

/// A function pointer of the type `Signature`, null if the function wasn't found.
template<typename Signature>
struct WindowsFunction
{
    Signature* pointer;

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
