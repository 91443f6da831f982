#pragma once

/// \file
/// Counts a module's calls of the OS, by any thread; made and read by one.

#include "Imports.h"

#include <map>
#include <memory>
#include <vector>

namespace Torvane::Benchmarks
{
/// From its construction on, every call through the module's imports from the OS's libraries is counted, for as long as the
/// process lives. Functions that the module has asked for by name aren't.
class CallCounter
{
public:
    explicit CallCounter(HMODULE module)
        : next(static_cast<uint8_t*>(VirtualAlloc(nullptr, capacity * sizeof(Thunk), MEM_COMMIT | MEM_RESERVE,
                                                  PAGE_EXECUTE_READWRITE)))
    {
        ForEachImport(module, [this](const std::string& library, const std::string& name, void** slot) {
            const bool isOfOS = _stricmp(library.c_str(), "kernel32.dll") == 0 ||
                                _stricmp(library.c_str(), "ntdll.dll") == 0 ||
                                _stricmp(library.c_str(), "psapi.dll") == 0;
            if (isOfOS)
            {
                WriteImport(slot, Count(name, *slot));
            }
        });
    }

    CallCounter(const CallCounter&) = delete;
    CallCounter& operator=(const CallCounter&) = delete;

    void Reset()
    {
        for (Thunk* thunk : thunks)
        {
            thunk->count = 0;
        }
    }

    /// How often each function was called since the last `Reset`.
    std::map<std::string, uint32_t> Counts() const
    {
        std::map<std::string, uint32_t> counts;
        for (size_t i = 0; i < thunks.size(); ++i)
        {
            counts[names[i]] += thunks[i]->count;
        }
        return counts;
    }

private:
#pragma pack(push, 1)
    /// `lock inc dword ptr [count]` and `jmp [target]`, whose addresses are absolute in 32-bit code, and relative to the
    /// instruction's end in 64-bit code.
    struct Thunk
    {
        uint8_t increment[3] = {0xF0, 0xFF, 0x05};
        uint32_t countAddress;
        uint8_t jump[2] = {0xFF, 0x25};
        uint32_t targetAddress;
        uint8_t padding[3] = {};
        volatile uint32_t count = 0;
        uint32_t padding14 = 0;
        const void* target;
    };
#pragma pack(pop)
    static constexpr size_t capacity = 1000;

    const void* Count(const std::string& name, const void* function)
    {
        Thunk thunk;
        const auto addressOf = [this](size_t member, [[maybe_unused]] size_t end) {
            const uintptr_t address = reinterpret_cast<uintptr_t>(next) + member;
            return static_cast<uint32_t>(sizeof(void*) == 8 ? member - end : address);
        };
        thunk.countAddress = addressOf(offsetof(Thunk, count), offsetof(Thunk, jump));
        thunk.targetAddress = addressOf(offsetof(Thunk, target), offsetof(Thunk, padding));
        thunk.target = function;
        memcpy(next, &thunk, sizeof(thunk));
        thunks.push_back(reinterpret_cast<Thunk*>(next));
        names.push_back(name);
        next += sizeof(Thunk);
        return thunks.back();
    }

    uint8_t* next;
    std::vector<Thunk*> thunks;
    std::vector<std::string> names;
};
} // namespace Torvane::Benchmarks
