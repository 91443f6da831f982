// A structured exception frame, registered by hand.
//
// The OS keeps a list of frames for each thread. Its head is at fs:[0], and a frame is a record on the stack that
// begins with two words: the next outer frame and the handler. Ours has two more:
//
//   [frame + 0]   next outer frame
//   [frame + 4]   handler
//   [frame + 8]   where to continue after an exception
//   [frame + 12]  the frame pointer to continue with

    .intel_syntax noprefix
    .text

    .globl _TorvaneRunInFrame
    .p2align 4
_TorvaneRunInFrame:                     // int __cdecl (function, context)
    push ebp                            // an ordinary stack frame,
    mov ebp, esp
    push ebx                            // with all that the caller expects to keep
    push esi
    push edi
    sub esp, 8
    fnstcw [esp + 4]                    // [ebp - 16]
    stmxcsr [esp]                       // [ebp - 20]
    push ebp                            // frame + 12
    mov eax, offset landing
    push eax                            // frame + 8
    mov eax, offset _TorvaneHandleException
    push eax                            // frame + 4
    push dword ptr fs:[0]               // frame + 0
    mov fs:[0], esp                     // from here on the frame is the innermost
    push [ebp + 12]                     // context
    call [ebp + 8]                      // function
    add esp, 4
    mov eax, 1
    jmp remove
landing:                                // here with esp = frame, ebp = [frame + 12], all else undefined
    cld                                 // the calling convention requires a clear direction flag
    xor eax, eax
remove:
    pop dword ptr fs:[0]                // the outer frame is the innermost again
    fninit                              // drops what is left in the unit, a pending exception above all
    fldcw [ebp - 16]
    ldmxcsr [ebp - 20]
    lea esp, [ebp - 12]                 // where the three registers were saved
    pop edi
    pop esi
    pop ebx
    pop ebp
    ret

    .globl _TorvaneLandInFrame
    .p2align 4
_TorvaneLandInFrame:                    // void __cdecl (frame, exceptionRecord), does not return
    mov esi, [esp + 4]
    mov eax, [esp + 8]
    push esi                            // RtlUnwind keeps neither ebx, esi nor edi
    push 0                              // value for eax, without meaning here
    push eax                            // exception record
    mov eax, offset unwound
    push eax                            // where RtlUnwind returns to
    push esi                            // the frame to stop at, which stays registered
    call _RtlUnwind@16
unwound:
    pop esi
    mov esp, esi                        // drops the OS's dispatcher and everything inside the frame
    mov ebp, [esi + 12]
    jmp [esi + 8]
