// Three crashes, and an exception frame to resume at.

    .intel_syntax noprefix
    .text

    .globl _DivideByZero
    .p2align 4
_DivideByZero:                          // int __cdecl ()
    mov eax, 100
    cdq
    xor ecx, ecx
    idiv ecx                            // faults; skipped, it leaves 100 in eax
    ret

    .globl _WriteThroughNull
    .p2align 4
_WriteThroughNull:                      // void __cdecl ()
    xor eax, eax
    mov dword ptr [eax], 42             // faults until it is replaced
    ret

    .globl _CallThroughBadPointer
    .p2align 4
_CallThroughBadPointer:                 // void __cdecl ()
    mov eax, 0x0BAD
    call eax                            // faults at the address that it calls
    ret

// The exception frame on the stack begins with the two words that the OS knows:
//
//   [frame + 0]   next outer frame
//   [frame + 4]   handler
    .globl _RunGuarded
    .p2align 4
_RunGuarded:                            // int __cdecl (function)
    push ebp                            // an ordinary stack frame,
    mov ebp, esp
    push ebx                            // with the registers that a callee preserves
    push esi
    push edi
    mov eax, offset decline
    push eax                            // frame + 4
    push dword ptr fs:[0]               // frame + 0
    mov fs:[0], esp                     // from here on the frame is the innermost
    mov [_resumePlace + 4], esp         // the registers that _resumed expects
    mov [_resumePlace + 8], ebp
    call [ebp + 8]                      // function
    mov eax, 1
    jmp remove
    .globl _resumed
_resumed:                               // here with esp = frame, which is unwound, and ebp as above
    cld                                 // the calling convention wants the direction flag clear
    xor eax, eax
remove:
    pop dword ptr fs:[0]                // the outer frame is the innermost again
    lea esp, [ebp - 12]                 // where the three registers were saved
    pop edi
    pop esi
    pop ebx
    pop ebp
    ret

decline:                                // EXCEPTION_DISPOSITION __cdecl (record, frame, context, dispatcher)
    mov eax, 1                          // ExceptionContinueSearch
    ret
