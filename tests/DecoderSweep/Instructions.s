# Instructions of every length, for the decoder: what the assembler makes of them is what they are compared with.
# Displacements and values have all their bytes different from 0, so that none is shortened.

    .intel_syntax noprefix

# An operand in memory, in every form that an address can have.
.macro addressed before, after=
    \before [eax] \after
    \before [ebp + 4] \after
    \before [esp] \after
    \before [esp + 4] \after
    \before [ebx + 0x12345678] \after
    \before [esp + 0x12345678] \after
    \before [esi + edi*2] \after
    \before [ebp + ecx*8 + 4] \after
    \before [edx*4 + 0x12345678] \after
    \before [ecx + eax*4 + 0x12345678] \after
    \before ds:[0x12345678] \after
    \before fs:[0x12345678] \after
    \before es:[edi + 4] \after
    \before gs:[esp + ecx*2 + 0x12345678] \after
    \before [bx + si] \after
    \before [bp + 4] \after
    \before [di + 0x1234] \after
.endm

.irp operation, add, or, adc, sbb, and, sub, xor, cmp, mov, test
    addressed "\operation eax, dword ptr"
    addressed "\operation byte ptr", ", 0x12"
    addressed "\operation word ptr", ", 0x1234"
    addressed "\operation dword ptr", ", 0x12345678"
    \operation al, 0x12
    \operation bx, 0x1234
    \operation eax, 0x12345678
    \operation esi, edi
.endr

.irp operation, add, or, adc, sbb, and, sub, xor
    addressed "lock \operation dword ptr", ", 0x12345678"
    addressed "lock \operation dword ptr", ", ebx"
    addressed "xacquire lock \operation dword ptr", ", 0x12345678"
    addressed "xrelease lock \operation word ptr", ", 0x1234"
.endr

.irp operation, inc, dec, not, neg
    addressed "\operation byte ptr"
    addressed "lock \operation dword ptr"
.endr

.irp operation, mul, imul, div, idiv, push, pop, call, jmp, nop
    addressed "\operation dword ptr"
.endr

.irp operation, movzx, movsx
    addressed "\operation eax, byte ptr"
    addressed "\operation eax, word ptr"
.endr

.irp operation, bt, bts, btr, btc, rol, ror, rcl, rcr, shl, shr, sar
    addressed "\operation dword ptr", ", 5"
.endr

.irp operation, lea, bsf, bsr, popcnt, lzcnt, tzcnt, bound, lds, les, lfs, lgs, lss
    \operation eax, [ebp + ecx*8 + 0x12345678]
    \operation eax, [edi]
.endr

.irp condition, o, no, b, ae, e, ne, be, a, s, ns, p, np, l, ge, le, g
    addressed "cmov\condition ecx, dword ptr"
    addressed "set\condition byte ptr"
.endr

.irp operation, fld, fst, fstp
    addressed "\operation dword ptr"
    addressed "\operation qword ptr"
.endr
.irp operation, fadd, fmul, fcom, fcomp, fsub, fsubr, fdiv, fdivr
    addressed "\operation dword ptr"
    \operation st(3)
.endr
.irp operation, fldcw, fnstcw, fnstsw, fldenv, fnstenv, frstor, fnsave, fxsave, fxrstor
    \operation [eax]
    \operation [ebx + 0x12345678]
.endr
.irp operation, fninit, fnclex, fld1, fldz, fldpi, fabs, fchs, fsin, fcos, fptan, fsqrt, fwait, emms
    \operation
.endr

.irp operation, movaps, movups, addps, mulps, sqrtps, andps, xorps, unpcklps
    addressed "\operation xmm1, xmmword ptr"
    \operation xmm2, xmm3
.endr
.irp operation, movdqa, movdqu, paddd, pmuludq, pxor, pcmpeqb, punpcklbw, pshufb, pabsd, aesenc, pmulld
    addressed "\operation xmm1, xmmword ptr"
    \operation xmm2, xmm3
.endr
.irp operation, pshufd, pshufhw, pshuflw, palignr, roundps, pcmpistri, aeskeygenassist, dpps
    addressed "\operation xmm1, xmmword ptr", ", 3"
.endr
.irp operation, paddb, pand, pmaddwd, psllq
    addressed "\operation mm1, qword ptr"
.endr

.irp operation, vaddps, vmulpd, vpxor, vpaddd, vfmadd231ps, vpermilps
    addressed "\operation xmm0, xmm1, xmmword ptr"
    addressed "\operation ymm0, ymm1, ymmword ptr"
.endr
.irp operation, vshufps, vpalignr, vblendps, vperm2f128
    addressed "\operation ymm0, ymm1, ymmword ptr", ", 3"
.endr
    addressed "vaddps zmm0, zmm1, zmmword ptr"
    addressed "vpternlogd zmm0, zmm1, zmmword ptr", ", 3"
    addressed "vpcmpub k1, zmm0, zmmword ptr", ", 3"
    addressed "vaddps zmm0 {k1} {z}, zmm1, zmmword ptr"

# The longest ones: a control word of four bytes behind an address of four.
.irp operation, bextr, lwpval, lwpins
    addressed "\operation eax, dword ptr", ", 0x12345678"
.endr

.irp operation, movsb, movsd, stosb, stosd, lodsb, scasb, cmpsb, insb, outsb
    \operation
    rep \operation
    repne \operation
.endr

.irp operation, aaa, aas, cbw, cdq, clc, cld, cli, cmc, cpuid, cwd, cwde, daa, das, hlt, into, iretd, lahf, leave, nop
    \operation
.endr
.irp operation, pause, popad, popfd, pushad, pushfd, rdmsr, rdtsc, ret, sahf, stc, std, sti, syscall, sysenter, ud2, wbinvd
    \operation
.endr

    aam
    aad
    bswap edi
    enter 0x1234, 5
    int 0x2E
    int3
    push 0x12
    push 0x12345678
    ret 0x1234
    in al, 0x60
    out dx, eax
    xchg eax, ebx
    xlatb
    imul eax, [esp + 0x12345678], 0x12345678
    imul ax, fs:[esp + 0x12345678], 0x1234
    shld dword ptr [esp + 4], eax, 5
    cmpxchg8b [esp + 4]
    mov cr0, eax
    mov eax, dr7
    mov ax, fs
    mov fs, ax
    lgdt [eax]
    invlpg [eax]
    endbr32
