// The system's function stores the registers as its caller has them, so this one is nothing but the way
// there.

#include <Base/platform/os/stacks/ThreadContext.h>

asm(R"(
    .text
    .p2align 4
    .globl _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE
    .def _ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE; .scl 2; .type 32; .endef
_ZN5ZBase2os14CaptureContextEPNS0_13ThreadContextE:
    jmp *__imp_RtlCaptureContext(%rip)
)");
