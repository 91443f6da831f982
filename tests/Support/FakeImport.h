#pragma once

/// \file
/// Functions of the OS or of the runtime replaced in the import table of a module. A test replaces one while no other
/// thread calls it.

#include "tests/Support/Modules.h"

#include <string.h>
#include <type_traits>

#include <gtest/gtest.h>

namespace Torvane::Testing
{
/// Where a module keeps the address of a function that it imports. Ends the process with a message if there is none.
inline void** FindImport(void* module, const char* name)
{
    auto* image = static_cast<uint8_t*>(module);
    const auto& directory = ImageHeaders(module).OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
    for (; library->Name != 0; ++library)
    {
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + library->OriginalFirstThunk);
        void** slot = reinterpret_cast<void**>(image + library->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slot)
        {
            const auto* import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + names->u1.AddressOfData);
            if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal) &&
                strcmp(reinterpret_cast<const char*>(import->Name), name) == 0)
            {
                return slot;
            }
        }
    }
    GTEST_LOG_(FATAL) << name << " is not imported";
    return nullptr;
}

/// \param slot as `FindImport` has returned it.
inline void WriteImport(void** slot, void* function)
{
    DWORD protection = 0;
    EXPECT_TRUE(VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection));
    *static_cast<void* volatile*>(slot) = function;
    EXPECT_TRUE(VirtualProtect(slot, sizeof(*slot), protection, &protection));
}

/// As long as it lives, calls that a module makes to a function of another one go to a function of the test.
class ReplacedImport
{
public:
    /// \param function has the signature and calling convention of the imported one.
    template<typename Function>
    ReplacedImport(void* module, const char* name, Function* function)
        : slot(FindImport(module, name))
        , original(*slot)
    {
        WriteImport(slot, reinterpret_cast<void*>(function));
    }

    ~ReplacedImport()
    {
        WriteImport(slot, original);
    }

    ReplacedImport(const ReplacedImport&) = delete;
    ReplacedImport& operator=(const ReplacedImport&) = delete;

    void* GetOriginal() const
    {
        return original;
    }

private:
    void** slot;
    void* original;
};

template<typename Fake, typename Signature = decltype(&Fake::operator())>
class FakeImport;

/// As long as it lives, calls that this program makes to a function of another module go to a fake. Calls from other
/// modules don't. The fake is a lambda whose first parameter is the real function, of the OS or of the runtime:
///
///     FakeImport wait("WaitForSingleObject", [](decltype(&WaitForSingleObject), HANDLE, DWORD) -> DWORD {
///         return WAIT_TIMEOUT;
///     });
template<typename Fake, typename Result, typename Function, typename... Arguments>
class FakeImport<Fake, Result (Fake::*)(Function*, Arguments...) const>
{
    static constexpr bool isOfOS = std::is_same_v<Function, Result WINAPI(Arguments...)>;
    static_assert(isOfOS || std::is_same_v<Function, Result __cdecl(Arguments...)>);

public:
    FakeImport(const char* name, Fake function)
        : fake(function)
        , slot(FindImport(GetModuleHandleW(nullptr), name))
        , real(reinterpret_cast<Function*>(*slot))
    {
        current = this;
        if constexpr (isOfOS)
        {
            WriteImport(slot, reinterpret_cast<void*>(&CallForOS));
        }
        else
        {
            WriteImport(slot, reinterpret_cast<void*>(&CallForRuntime));
        }
    }

    ~FakeImport()
    {
        WriteImport(slot, reinterpret_cast<void*>(real));
    }

    FakeImport(const FakeImport&) = delete;
    FakeImport& operator=(const FakeImport&) = delete;

private:
    static Result WINAPI CallForOS(Arguments... arguments)
    {
        return current->fake(current->real, arguments...);
    }

    static Result __cdecl CallForRuntime(Arguments... arguments)
    {
        return current->fake(current->real, arguments...);
    }

    static inline FakeImport* current = nullptr;

    Fake fake;
    void** slot;
    Function* real;
};

template<typename Fake>
FakeImport(const char*, Fake) -> FakeImport<Fake>;
} // namespace Torvane::Testing
