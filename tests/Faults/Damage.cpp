#include "Damage.h"

#include <windows.h>

namespace Torvane::Faults
{
namespace
{
/// A handle of an event of the host's: see `HostState`.
HANDLE HostHandle()
{
    return reinterpret_cast<HANDLE>(uintptr_t{0x5A8});
}

void Crash()
{
    *static_cast<volatile int*>(nullptr) = 0;
}

void Hang()
{
    Sleep(INFINITE);
}

void CloseHandleOfHost()
{
    CloseHandle(HostHandle());
}

void ReplaceHandleOfHost()
{
    CloseHandle(HostHandle());
    while (reinterpret_cast<uintptr_t>(CreateEventW(nullptr, TRUE, FALSE, nullptr)) < 0x5A8)
    {
    }
}

void SignalHandleOfHost()
{
    SetEvent(HostHandle());
}

void ChangeProtection()
{
    static const int constant = 1;
    DWORD before = 0;
    VirtualProtect(const_cast<int*>(&constant), sizeof(constant), PAGE_READWRITE, &before);
}

void ChangeFolder()
{
    SetCurrentDirectoryW(L"C:\\");
}

void ChangeErrorMode()
{
    SetErrorMode(SEM_NOOPENFILEERRORBOX);
}

void ChangeFloatingPoint()
{
    __asm__ volatile("fninit");
}

void CorruptHeap()
{
    char* block = static_cast<char*>(HeapAlloc(GetProcessHeap(), 0, 64));
    for (int i = -16; i < 0; ++i)
    {
        static_cast<volatile char*>(block)[i] = 0x55;
    }
}

void End()
{
    TerminateProcess(GetCurrentProcess(), 3);
}

struct Damage
{
    const char* name;
    void (*act)();
};

constexpr Damage damages[] = {
    {"crash", Crash},
    {"hang", Hang},
    {"closed handle", CloseHandleOfHost},
    {"replaced handle", ReplaceHandleOfHost},
    {"signalled handle", SignalHandleOfHost},
    {"protection", ChangeProtection},
    {"folder", ChangeFolder},
    {"error mode", ChangeErrorMode},
    {"floating point", ChangeFloatingPoint},
    {"heap", CorruptHeap},
    {"end", End},
};
} // namespace

bool DoDamage(const std::string& name)
{
    for (const Damage& damage : damages)
    {
        if (name == damage.name)
        {
            damage.act();
            return true;
        }
    }
    return false;
}
} // namespace Torvane::Faults
