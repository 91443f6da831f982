/// \file
/// What the soak's patches are made of. Their Bridge writes a number of its own into each copy.

#include <stdint.h>
#include <string.h>

#include <windows.h>

extern "C"
{
/// In one piece, for the Bridge to read at once.
struct PatchState
{
    uint32_t number; ///< written into the file
    uint32_t entries;
    uint32_t base; ///< the entry point's first argument
    uint32_t reason;
    uint32_t hooks; ///< calls of hooks
    uint32_t texts; ///< sum of what their arguments hold
};
__declspec(dllexport) PatchState patchState = {0x50A4B175, 0, 0, 0, 0, 0};
__declspec(dllexport) uint8_t patchData[512];

__declspec(dllexport) uint32_t PatchValue()
{
    return patchState.number;
}

static void __cdecl Hook(uint32_t id)
{
    patchState.hooks += 1 + id;
}

static void __cdecl HookWithTexts(uint32_t id, const char* first, const char* second)
{
    patchState.hooks += 1 + id;
    patchState.texts += static_cast<uint32_t>(strlen(first) * 1000 + strlen(second));
}

__declspec(dllexport) void(__cdecl* patchHooks[3])(uint32_t) = {&Hook, nullptr, &Hook};
__declspec(dllexport) void(__cdecl* patchTextHooks[1])(uint32_t, const char*, const char*) = {&HookWithTexts};

/// Begins with E9 01 00 00 00 `jmp` over 90 `nop`: six bytes that hold no address to be relocated.
__attribute__((naked)) BOOL __stdcall PatchEntryPoint(HINSTANCE, DWORD, void*)
{
    asm volatile(".byte 0xE9, 1, 0, 0, 0, 0x90\n\t"
                 "incl _patchState+4\n\t"
                 "movl 4(%esp), %eax\n\t"
                 "movl %eax, _patchState+8\n\t"
                 "movl 8(%esp), %eax\n\t"
                 "movl %eax, _patchState+12\n\t"
                 "movl $1, %eax\n\t"
                 "retl $12");
}
}
