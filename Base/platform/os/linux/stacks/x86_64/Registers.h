#pragma once

#include <ucontext.h>
#include <cstddef>
#include <cstdint>

#include <Base/platform/os/stacks/ThreadContext.h>

namespace ZBase::os {

// DWARF register numbers.
inline constexpr unsigned int kRegisters = 17;  // the last is the return address
inline constexpr unsigned int kFramePointer = 6;
inline constexpr unsigned int kStackPointer = 7;
inline constexpr unsigned int kReturnAddress = 16;

/// The return address = *(CFA + this).
inline constexpr std::int64_t kReturnAddressPlace = -8;

/// Code is between these addresses.
inline constexpr std::uint64_t kLeastAddress = 1 << 16;
inline constexpr unsigned int kUserAddressBits = 47;

/// The general registers, with the layout of the beginning of a `ThreadContext`.
struct alignas(16) GeneralRegisters {
    unsigned char head[0x78];
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    std::uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    std::uint64_t rip;

    std::uint64_t Address() const { return rip; }
    std::uint64_t StackPointer() const { return rsp; }
    std::uint64_t FramePointer() const { return rbp; }
};
static_assert(sizeof(GeneralRegisters) == 0x100 && offsetof(GeneralRegisters, rip) == 0xF8);

/// `CaptureContext` for the general registers only.
void CaptureRegisters(GeneralRegisters* registers);

/// The registers of a `ThreadContext`, or of `GeneralRegisters`, by DWARF number.
template <class State>
void NumberRegisters(const State& from, std::uint64_t (&to)[kRegisters]) {
    const std::uint64_t numbered[kRegisters] = {from.rax, from.rdx, from.rcx, from.rbx, from.rsi, from.rdi,
                                                from.rbp, from.rsp, from.r8,  from.r9,  from.r10, from.r11,
                                                from.r12, from.r13, from.r14, from.r15, from.rip};
    for (unsigned int number = 0; number != kRegisters; ++number) to[number] = numbered[number];
}

/// Sets a context to the caller's frame. Registers that a call may change are left unchanged.
inline void MoveToCaller(const std::uint64_t (&caller)[kRegisters], ThreadContext& context) {
    context.rbx = caller[3];
    context.rbp = caller[kFramePointer];
    context.rsp = caller[kStackPointer];
    context.r12 = caller[12];
    context.r13 = caller[13];
    context.r14 = caller[14];
    context.r15 = caller[15];
    context.rip = caller[kReturnAddress];
}

/// Stores the state that a signal interrupted into a `ThreadContext` or into `GeneralRegisters`. No heap, no
/// lock.
template <class State>
void StoreRegisters(const ucontext_t& from, State& to) {
    const auto value = [&](int name) { return static_cast<std::uint64_t>(from.uc_mcontext.gregs[name]); };
    to.rax = value(REG_RAX);
    to.rcx = value(REG_RCX);
    to.rdx = value(REG_RDX);
    to.rbx = value(REG_RBX);
    to.rsp = value(REG_RSP);
    to.rbp = value(REG_RBP);
    to.rsi = value(REG_RSI);
    to.rdi = value(REG_RDI);
    to.r8 = value(REG_R8);
    to.r9 = value(REG_R9);
    to.r10 = value(REG_R10);
    to.r11 = value(REG_R11);
    to.r12 = value(REG_R12);
    to.r13 = value(REG_R13);
    to.r14 = value(REG_R14);
    to.r15 = value(REG_R15);
    to.rip = value(REG_RIP);
}

/// All parts of a context.
inline void StoreContext(const ucontext_t& from, ThreadContext& to) {
    to.contextFlags = kFullContext;
    to.flags = static_cast<std::uint32_t>(from.uc_mcontext.gregs[REG_EFL]);
    StoreRegisters(from, to);
}

/// The calling thread's own record, which is right above its stack.
inline std::uint64_t ThreadPointer() {
    std::uint64_t self = 0;
    asm("movq %%fs:0, %0" : "=r"(self));
    return self;
}

}  // namespace ZBase::os
