// Unwinds one structured exception frame, and returns.
//
// The OS keeps a list of frames for each thread. Its head is at fs:[0], and a frame is a record on the stack that
// begins with two words:
//
//   [frame + 0]   next outer frame, -1 in the outermost
//   [frame + 4]   handler
//
// RtlUnwind(target frame, target address, exception record, value) calls the handlers of all frames inside the target
// frame, removes them from the list, and continues after its own call with eax = value. The target frame stays. It keeps
// ebp and sets esp as for any function that pops its arguments, but ebx, esi and edi are lost, which the compiler
// expects back from a function that it calls.

    .intel_syntax noprefix
    .text

    .globl _TorvaneUnwindTopFrame
    .p2align 4
_TorvaneUnwindTopFrame:                 // void __cdecl (exceptionRecord)
    push ebp                            // an ordinary stack frame: [ebp + 8] is the argument,
    mov ebp, esp
    push ebx                            // [ebp - 4]
    push esi                            // [ebp - 8]
    push edi                            // [ebp - 12], where esp is now

    mov eax, fs:[0]                     // the top-most frame, which is to go
    push 0                              // value for eax
    push [ebp + 8]                      // exception record; it is marked as one of an unwinding
    mov ecx, offset unwound
    push ecx                            // target address
    push [eax]                          // target frame: the next one outside of the top-most
    call _RtlUnwind@16
unwound:                                // here with ebp as before the call, and the next frame at fs:[0]
    cld                                 // the calling convention wants the direction flag clear
    lea esp, [ebp - 12]                 // where the three registers were saved
    pop edi
    pop esi
    pop ebx
    pop ebp
    ret
