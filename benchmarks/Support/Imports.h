#pragma once

/// \file
/// The functions of the OS that a module imports, replaced in its import table. One thread; other threads don't call the
/// functions meanwhile.

#include <stdint.h>
#include <string.h>

#include <string>

#include <windows.h>

namespace Torvane::Benchmarks
{
/// Calls `visit(library, name, slot)` for each function that a loaded module imports by name. The slot holds its address.
template<typename Visit>
void ForEachImport(HMODULE module, Visit visit)
{
    auto* const image = reinterpret_cast<uint8_t*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
    for (; library->Name != 0; ++library)
    {
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + library->OriginalFirstThunk);
        void** slot = reinterpret_cast<void**>(image + library->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slot)
        {
            if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
            {
                const auto* import =
                    reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + names->u1.AddressOfData);
                visit(std::string(reinterpret_cast<const char*>(image + library->Name)),
                      std::string(reinterpret_cast<const char*>(import->Name)), slot);
            }
        }
    }
}

inline void WriteImport(void** slot, const void* function)
{
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    memcpy(slot, &function, sizeof(function));
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

/// \return the address of the replaced function; null if the module doesn't import it.
template<typename Function>
Function* ReplaceImport(HMODULE module, const char* name, Function* replacement)
{
    Function* replaced = nullptr;
    ForEachImport(module, [&](const std::string&, const std::string& import, void** slot) {
        if (import == name)
        {
            replaced = reinterpret_cast<Function*>(*slot);
            WriteImport(slot, reinterpret_cast<const void*>(replacement));
        }
    });
    return replaced;
}
} // namespace Torvane::Benchmarks
