/// \file
/// What the library `Watched` exports: calls of its functions, and hooks that count.

#include "Watched.h"

/// The other one of that name is in WatchedTwin.cpp.
static int Twin(int value) asm("_Twin"); // as the linker knows one that is written in C

__attribute__((noinline)) static int Twin(int value)
{
    return value * 2;
}

namespace
{
struct HookId
{
    unsigned char empty;
};

using ReloadHook = void (*)(HookId id, const char* text, unsigned number);
} // namespace

// A function shorter than a jump, with another one directly after it.
asm(R"(
    .globl _Tiny
    .def _Tiny; .scl 2; .type 32; .endef
_Tiny:
    xorl %eax, %eax
    ret
    .globl _AfterTiny
    .def _AfterTiny; .scl 2; .type 32; .endef
_AfterTiny:
    ret
)");

extern "C"
{
__declspec(dllexport) int CallScale(int value)
{
    return Scale(value);
}

__declspec(dllexport) int CallShift(int value)
{
    return Shift(value);
}

__declspec(dllexport) int CallOthers(int value)
{
    return Tiny() + Twin(value) + CallTwin(value);
}

__declspec(dllexport) unsigned lastBefore = 0;
__declspec(dllexport) unsigned lastAfter = 0;
__declspec(dllexport) char lastNames[256] = {};
}

static void Before(HookId, const char* text, unsigned number)
{
    lastBefore = number;
    for (unsigned i = 0; text[i] != '\0' && i < sizeof(lastNames) - 1; ++i)
    {
        lastNames[i] = text[i];
    }
}

static void After(HookId, const char*, unsigned number)
{
    lastAfter = number;
}

extern "C" __declspec(dllexport) const ReloadHook beforeReloadHooks[] = {&Before, nullptr};
extern "C" __declspec(dllexport) const ReloadHook afterReloadHooks[] = {&After, nullptr};
