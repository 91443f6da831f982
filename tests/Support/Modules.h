#pragma once

/// \file
/// What the loader and the OS know of this process's modules and memory; any thread.

#include <stdint.h>
#include <string>

#include <windows.h>

namespace Torvane::Testing
{
/// The full path of this process's executable.
inline std::wstring ProgramPath()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

/// The headers of a loaded module.
inline const IMAGE_NT_HEADERS& ImageHeaders(const void* module)
{
    const auto* image = static_cast<const uint8_t*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    return *reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
}

/// An export, as a function or the address of data.
template<typename Type>
Type FindExport(void* module, const char* name)
{
    return reinterpret_cast<Type>(
        reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name)));
}

/// Whether a module is loaded there.
inline bool IsModule(const void* base)
{
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                  GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<const wchar_t*>(base), &module) &&
           module == base;
}

inline MEMORY_BASIC_INFORMATION QueryMemory(const void* address)
{
    MEMORY_BASIC_INFORMATION region = {};
    VirtualQuery(address, &region, sizeof(region));
    return region;
}

inline bool IsOpenHandle(HANDLE handle)
{
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != 0;
}
} // namespace Torvane::Testing
