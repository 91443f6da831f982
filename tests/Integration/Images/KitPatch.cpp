/// \file
/// A patch for the functions of the Bridge kit: an entry point that counts its calls and whose first bytes aren't relocated,
/// and a function that takes another's place.

#include <stdint.h>

extern "C"
{
__declspec(dllexport) uint32_t entries = 0;
__declspec(dllexport) int PatchedNumber();
}

asm(R"(
    .globl _KitEntryPoint@12
_KitEntryPoint@12:
    pushl %ebp
    movl %esp, %ebp
    nop
    nop
    nop
    incl _entries
    movl $1, %eax
    popl %ebp
    ret $12
)");

int PatchedNumber()
{
    return 100;
}
