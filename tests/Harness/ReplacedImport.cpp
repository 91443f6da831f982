#include "tests/Harness/ReplacedImport.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <windows.h>

namespace Torvane::Testing
{
namespace
{
template<typename Record>
const Record* At(void* module, DWORD rva)
{
    return reinterpret_cast<const Record*>(static_cast<uint8_t*>(module) + rva);
}

const IMAGE_IMPORT_DESCRIPTOR* Imports(void* module)
{
    const auto* dos = At<IMAGE_DOS_HEADER>(module, 0);
    const auto* headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    const DWORD rva = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    return At<IMAGE_IMPORT_DESCRIPTOR>(module, rva);
}

/// Where the library keeps the address of an imported function; null if it doesn't import it.
void** FindSlot(void* module, const char* name)
{
    for (const auto* library = Imports(module); library->Name != 0; ++library)
    {
        const auto* names = At<IMAGE_THUNK_DATA>(module, library->OriginalFirstThunk);
        const auto* addresses = At<IMAGE_THUNK_DATA>(module, library->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++addresses)
        {
            if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal) &&
                strcmp(At<IMAGE_IMPORT_BY_NAME>(module, names->u1.AddressOfData)->Name, name) == 0)
            {
                return reinterpret_cast<void**>(const_cast<IMAGE_THUNK_DATA*>(addresses));
            }
        }
    }
    return nullptr;
}

void Write(void** slot, void* value)
{
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    *slot = value;
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
}
} // namespace

ReplacedImport::ReplacedImport(void* module, const char* name, void* function)
    : slot(FindSlot(module, name))
{
    if (slot == nullptr)
    {
        fprintf(stderr, "The Agent doesn't import %s.\n", name);
        fflush(stderr);
        TerminateProcess(GetCurrentProcess(), 1);
    }
    original = *slot;
    Write(slot, function);
}

ReplacedImport::~ReplacedImport()
{
    Write(slot, original);
}
} // namespace Torvane::Testing
