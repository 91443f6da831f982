// The floating-point unit's state, set aside and brought back.

    .intel_syntax noprefix
    .text

    .globl _TorvaneSetFloatingPointAside
    .p2align 4
_TorvaneSetFloatingPointAside:          // void __cdecl (state)
    mov eax, [esp + 4]
    fnsave [eax]                        // raises nothing that is pending, and leaves the unit as after FNINIT
    stmxcsr [eax + 108]
    push 0x1F80                         // all exceptions masked, none pending, round to nearest
    ldmxcsr [esp]
    add esp, 4
    ret

    .globl _TorvaneRestoreFloatingPoint
    .p2align 4
_TorvaneRestoreFloatingPoint:           // void __cdecl (state)
    mov eax, [esp + 4]
    ldmxcsr [eax + 108]
    frstor [eax]
    ret
