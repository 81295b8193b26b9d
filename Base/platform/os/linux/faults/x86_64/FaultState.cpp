#include <Base/platform/os/linux/faults/FaultState.h>

namespace ZBase::os {

namespace {

constexpr unsigned int kDenormalFlag = 0x02;    // in both status words
constexpr unsigned int kStackFaultFlag = 0x40;  // of the x87
constexpr unsigned int kAllFlags = 0x3F;
constexpr unsigned long long kAlignmentCheckFlag = 0x40000;  // of the processor's flags

/// The x87 flags of unmasked exceptions.
unsigned int StackFlags(const ucontext_t& context) {
    const auto* const state = context.uc_mcontext.fpregs;
    return state == nullptr ? 0 : state->swd & ~(state->cwd & kAllFlags);
}

unsigned int VectorFlags(const ucontext_t& context) {
    const auto* const state = context.uc_mcontext.fpregs;
    return state == nullptr ? 0 : state->mxcsr & ~(state->mxcsr >> 7);
}

}  // namespace

bool IsDenormalOperand(const ucontext_t& context) {
    return ((VectorFlags(context) | StackFlags(context)) & kDenormalFlag) != 0;
}

bool IsFloatingPointStackFault(const ucontext_t& context) {
    return (StackFlags(context) & kStackFaultFlag) != 0;
}

void RestoreFloatingPoint(const ucontext_t& context) {
    const auto* const state = context.uc_mcontext.fpregs;
    if (state == nullptr) return;
    const unsigned int vectorControl = state->mxcsr & ~kAllFlags;
    const unsigned short stackControl = state->cwd;
    asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1" : : "m"(stackControl), "m"(vectorControl));
}

void AllowMisalignment() {
    __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() & ~kAlignmentCheckFlag);
}

void StepIntoBreakpoint(ucontext_t& context) {
    --context.uc_mcontext.gregs[REG_RIP];
}

}  // namespace ZBase::os
