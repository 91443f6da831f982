// See SpinForever.h. Spelled as bytes, so that the encoding isn't the assembler's choice.

    .intel_syntax noprefix
    .text

    .globl _SpinForever
    .p2align 4
_SpinForever:
    .byte 0xEB, 0xFE                    // jmp short, back to itself
