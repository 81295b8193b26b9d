#pragma once

#include <cstddef>
#include <cstdint>

namespace ZBase::os {

/// The register state of a thread, in the published layout of an x64 context record.
struct alignas(16) ThreadContext {
    std::uint64_t parameterHome[6];
    std::uint32_t contextFlags;
    std::uint32_t mxCsr;
    std::uint16_t segments[6];
    std::uint32_t flags;
    std::uint64_t debugRegisters[6];
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    std::uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    std::uint64_t rip;
    unsigned char floatingPoint[512];
    unsigned char vectors[416];
    std::uint64_t vectorControl;
    std::uint64_t branchRecords[5];
};
static_assert(sizeof(ThreadContext) == 1232);
static_assert(offsetof(ThreadContext, contextFlags) == 0x30);
static_assert(offsetof(ThreadContext, rax) == 0x78);
static_assert(offsetof(ThreadContext, rsp) == 0x98);
static_assert(offsetof(ThreadContext, rdi) == 0xB0);
static_assert(offsetof(ThreadContext, rip) == 0xF8);

/// The flags for the parts of a context that this library stores.
inline constexpr std::uint32_t kFullContext = 0x10000B;

/// The start of a stack walk.
struct WalkStart {
    std::uint64_t instruction;
    std::uint64_t stack;
    std::uint64_t frame;
};

/// The frame is taken from rdi, not from rbp; kept for callers that compare such frame addresses.
inline WalkStart StartOfWalk(const ThreadContext& context) {
    return {context.rip, context.rsp, context.rdi};
}

/// Sets the place in a context of which nothing else is known.
inline void SetPlace(ThreadContext& context, std::uint64_t instruction, std::uint64_t stack) {
    context.rip = instruction;
    context.rsp = stack;
}

}  // namespace ZBase::os
