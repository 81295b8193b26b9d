// The thread lands in a few lines that store the place of the fault as if it were their return address, and
// call the translator. Their directives tell the unwinder how to leave them, so that an exception goes on in
// the function that faulted.

#include <Base/platform/os/windows/faults/Landing.h>

#include <cstdint>

// In the state of the thread: rax the return address, for which there is room at the stack pointer, rcx the
// code, rdx the context, r8 the translator. The stack may be aligned in any way.
asm(R"(
    .text
    .p2align 4
    .globl ZBaseFaultLanding
    .def ZBaseFaultLanding; .scl 2; .type 32; .endef
    .seh_proc ZBaseFaultLanding
ZBaseFaultLanding:
    movq %rax, (%rsp)
    pushq %rbp
    .seh_pushreg %rbp
    movq %rsp, %rbp
    .seh_setframe %rbp, 0
    .seh_endprologue
    andq $-16, %rsp
    subq $32, %rsp
    call *%r8
    nop
    ud2
    .seh_endproc
)");

extern "C" const char ZBaseFaultLanding[];

namespace ZBase::os {

namespace {

constexpr DWORD kTrapFlag = 0x100;
constexpr DWORD kDirectionFlag = 0x400;
constexpr DWORD kAlignmentCheckFlag = 0x40000;
constexpr DWORD kVectorFlags = 0x3F;
constexpr WORD kStackFlags = 0x80FF;

// What an unwinder takes for the end of a function, from where its frame is gone already: a return, a jump,
// or pops.
bool LooksLikeEnd(const unsigned char* code) {
    if ((*code & 0xF0) == 0x40) ++code;  // a prefix that widens
    return (*code >= 0x58 && *code <= 0x5F) || *code == 0xC2 || *code == 0xC3 || *code == 0xE9 ||
           *code == 0xEB || *code == 0xF3 || *code == 0xFF || *code == 0x81 || *code == 0x83 || *code == 0x8D;
}

// Traps, input and output, copies.
bool HasOneOctet(unsigned char code) {
    return code == 0xCC || code == 0xF1 || code == 0xF4 || code == 0xFA || code == 0xFB ||
           (code & 0xFC) == 0xEC || (code & 0xFC) == 0x6C || (code & 0xF0) == 0xA0;
}

// Handlers are looked up for the octet before a return address, which is to be within the instruction. Seen
// as code, its later octets must not make an end.
std::uint64_t Behind(std::uint64_t instruction) {
    const auto* const code = reinterpret_cast<const unsigned char*>(instruction);
    const bool isMisleading = !HasOneOctet(*code) && LooksLikeEnd(code + 1) && !LooksLikeEnd(code + 2);
    return instruction + (isMisleading ? 2 : 1);
}

}  // namespace

void LandInTranslator(CONTEXT& context, const CONTEXT& place, bool isFault, unsigned int code,
                      FaultTranslator translator) {
    const DWORD flags = context.ContextFlags;
    context = place;
    context.ContextFlags = flags;
    context.Rax = isFault ? Behind(place.Rip) : place.Rip;
    context.Rcx = code;
    context.Rdx = 0;
    context.R8 = reinterpret_cast<std::uint64_t>(translator);
    context.Rsp = place.Rsp - sizeof context.Rax;
    context.Rip = reinterpret_cast<std::uint64_t>(ZBaseFaultLanding);
    // Exceptions of the floating point units stay unmasked, what has happened is cleared.
    context.EFlags &= ~(kTrapFlag | kDirectionFlag | kAlignmentCheckFlag);
    context.MxCsr &= ~kVectorFlags;
    context.FltSave.MxCsr &= ~kVectorFlags;
    context.FltSave.StatusWord = static_cast<WORD>(context.FltSave.StatusWord & ~kStackFlags);
}

}  // namespace ZBase::os
