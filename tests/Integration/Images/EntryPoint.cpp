/// \file
/// A library whose entry point is known to the instruction, and records how it was called.

#include <stdint.h>

#include <windows.h>

extern "C"
{
struct EntryPointCall
{
    uint32_t count;        ///< of all calls
    uint32_t stackPointer; ///< of the last call, where the return address is; all below likewise
    uint32_t base;
    uint32_t reason;
    uint32_t reserved;
};
__declspec(dllexport) EntryPointCall entryPointCall;

/// Begins with E9 01 00 00 00 `jmp` over 90 `nop`: six bytes that hold no address to be relocated.
__attribute__((naked)) BOOL __stdcall RecordingEntryPoint(HINSTANCE, DWORD, void*)
{
    asm volatile(".byte 0xE9, 1, 0, 0, 0, 0x90\n\t"
                 "incl _entryPointCall\n\t"
                 "movl %esp, _entryPointCall+4\n\t"
                 "movl 4(%esp), %eax\n\t"
                 "movl %eax, _entryPointCall+8\n\t"
                 "movl 8(%esp), %eax\n\t"
                 "movl %eax, _entryPointCall+12\n\t"
                 "movl 12(%esp), %eax\n\t"
                 "movl %eax, _entryPointCall+16\n\t"
                 "movl $1, %eax\n\t"
                 "retl $12");
}
}
