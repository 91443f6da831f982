#pragma once

/// \file
/// Functions between the Agent and the OS, in tests. No other thread may call the function while it is replaced.

#include <stdint.h>
#include <string.h>

#include <windows.h>

namespace Torvane::Testing
{
/// Where an image keeps the address of a function that it imports. Null if it doesn't import it.
inline void** FindImport(void* module, const char* name)
{
    auto* base = static_cast<uint8_t*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
    for (; library->Name != 0; ++library)
    {
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + library->OriginalFirstThunk);
        auto* addresses = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++addresses)
        {
            const auto* import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal) && strcmp(import->Name, name) == 0)
            {
                return reinterpret_cast<void**>(&addresses->u1.Function);
            }
        }
    }
    return nullptr;
}

/// Has an image call another function.
/// \param place as `FindImport` has found it.
inline void ReplaceImport(void** place, void* function)
{
    DWORD before = 0;
    VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &before);
    *place = function;
    VirtualProtect(place, sizeof(*place), before, &before);
}
} // namespace Torvane::Testing
