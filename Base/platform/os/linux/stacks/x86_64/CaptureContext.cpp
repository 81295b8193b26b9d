// Compiled code can't read the registers without changing them, hence assembler. It stores the general
// registers only.

#include <Base/platform/os/stacks/ThreadContext.h>

// offsets of ThreadContext, checked there
asm(R"(
    .text
    .p2align 4
    .hidden _ZN5ZBase2os16CaptureRegistersEPNS0_16GeneralRegistersE
    .globl _ZN5ZBase2os16CaptureRegistersEPNS0_16GeneralRegistersE
    .type _ZN5ZBase2os16CaptureRegistersEPNS0_16GeneralRegistersE, @function
    .set _ZN5ZBase2os16CaptureRegistersEPNS0_16GeneralRegistersE, _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE
    .hidden _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE
    .globl _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE
    .type _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE, @function
_ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE:
    .cfi_startproc
    movq %rax, 0x78(%rdi)
    movq %rcx, 0x80(%rdi)
    movq %rdx, 0x88(%rdi)
    movq %rbx, 0x90(%rdi)
    movq %rbp, 0xA0(%rdi)
    movq %rsi, 0xA8(%rdi)
    movq %rdi, 0xB0(%rdi)
    movq %r8,  0xB8(%rdi)
    movq %r9,  0xC0(%rdi)
    movq %r10, 0xC8(%rdi)
    movq %r11, 0xD0(%rdi)
    movq %r12, 0xD8(%rdi)
    movq %r13, 0xE0(%rdi)
    movq %r14, 0xE8(%rdi)
    movq %r15, 0xF0(%rdi)
    leaq 8(%rsp), %rax
    movq %rax, 0x98(%rdi)
    movq (%rsp), %rax
    movq %rax, 0xF8(%rdi)
    ret
    .cfi_endproc
    .size _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE, . - _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE
)");
