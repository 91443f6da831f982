#pragma once

/// \file
/// Stand-ins for functions of the OS, in tests. A test installs one while no other thread calls the function.

#include <stdint.h>
#include <string.h>
#include <type_traits>

#include <gtest/gtest.h>
#include <windows.h>

namespace Torvane
{
template<typename StandIn, typename Signature = decltype(&StandIn::operator())>
class TestImport;

/// As long as it lives, calls that this program makes to a function of another module go to a stand-in. Calls from
/// other modules don't. The stand-in is a lambda whose first parameter is the function that it stands in for, of the OS
/// or of the runtime:
///
///     TestImport wait("WaitForSingleObject", [](decltype(&WaitForSingleObject), HANDLE, DWORD) -> DWORD {
///         return WAIT_TIMEOUT;
///     });
template<typename StandIn, typename Result, typename Function, typename... Arguments>
class TestImport<StandIn, Result (StandIn::*)(Function*, Arguments...) const>
{
    static constexpr bool isOfOS = std::is_same_v<Function, Result WINAPI(Arguments...)>;
    static_assert(isOfOS || std::is_same_v<Function, Result __cdecl(Arguments...)>);

public:
    TestImport(const char* name, StandIn function)
        : standIn(function)
        , slot(FindSlot(name))
    {
        if (slot == nullptr)
        {
            GTEST_LOG_(FATAL) << name << " is not imported";
        }
        real = *slot;
        current = this;
        if constexpr (isOfOS)
        {
            Write(&CallForOS);
        }
        else
        {
            Write(&CallForRuntime);
        }
    }

    ~TestImport()
    {
        Write(real);
    }

    TestImport(const TestImport&) = delete;
    TestImport& operator=(const TestImport&) = delete;

private:
    static Result WINAPI CallForOS(Arguments... arguments)
    {
        return current->standIn(current->real, arguments...);
    }

    static Result __cdecl CallForRuntime(Arguments... arguments)
    {
        return current->standIn(current->real, arguments...);
    }

    static Function** FindSlot(const char* name)
    {
        uint8_t* image = reinterpret_cast<uint8_t*>(GetModuleHandleW(nullptr));
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
        const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
        const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        const auto* module =
            reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
        for (; module->Name != 0; ++module)
        {
            const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + module->OriginalFirstThunk);
            void** slots = reinterpret_cast<void**>(image + module->FirstThunk);
            for (; names->u1.AddressOfData != 0; ++names, ++slots)
            {
                const auto* import =
                    reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + names->u1.AddressOfData);
                if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal) &&
                    strcmp(reinterpret_cast<const char*>(import->Name), name) == 0)
                {
                    return reinterpret_cast<Function**>(slots);
                }
            }
        }
        return nullptr;
    }

    void Write(Function* function)
    {
        DWORD protection = 0;
        EXPECT_TRUE(VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection));
        *static_cast<Function* volatile*>(slot) = function;
        EXPECT_TRUE(VirtualProtect(slot, sizeof(*slot), protection, &protection));
    }

    static inline TestImport* current = nullptr;

    StandIn standIn;
    Function** slot;
    Function* real;
};

template<typename StandIn>
TestImport(const char*, StandIn) -> TestImport<StandIn>;
} // namespace Torvane
