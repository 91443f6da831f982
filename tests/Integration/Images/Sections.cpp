/// \file
/// A library with thread-local storage and sections of its own, which the linker sorts by name: executable ones
/// after others of every sort.

asm(R"(
    .section s1code, "xr"
    .globl _FirstCode
_FirstCode:
    movl $1, %eax
    retl

    .section s2code, "xr"
    .globl _SecondCode
_SecondCode:
    movl $2, %eax
    retl

    .section s3const, "r"
    .space 5000, 0xC1

    .section s4code, "xr"
    .globl _ThirdCode
_ThirdCode:
    movl $3, %eax
    retl

    .section s5data, "rw"
    .space 9000, 0xDA

    .section s6code, "xr"
    .globl _FourthCode
_FourthCode:
    movl $4, %eax
    retl

    .section .drectve, "yn"
    .ascii " -export:FirstCode -export:SecondCode -export:ThirdCode -export:FourthCode"
)");

namespace
{
thread_local int threadNumber = 0x7E57;
}

extern "C" __declspec(dllexport) int ThreadNumber()
{
    return threadNumber++;
}
