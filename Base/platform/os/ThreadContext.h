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

inline constexpr std::uint32_t kFullContext = 0x10000B;
inline constexpr std::uint32_t kThreadGetContext = 8;

/// Stores the general registers as the caller sees them when the call returns. No heap, no lock.
void CaptureContext(ThreadContext* context);

/// Calls `filter(argument, context)` with a register state of the calling thread two frames further in than
/// the caller of this function; those frames stay in place meanwhile.
void CallWithOwnContext(void (*filter)(void* argument, ThreadContext& context), void* argument);

// Threads are named by handle: the native handle of `std::thread`, or what `OpenThread` gives.

/// A handle on the thread with this id, or null if there is none.
void* OpenThread(std::uint32_t access, unsigned long threadId);

void CloseThread(void* thread);

/// Stops a thread at a place where neither the heap's nor the loader's lock is its own. False if the thread
/// has ended, does not answer within a second, or if the handle has no right to it: a handle of `OpenThread`
/// with `kThreadGetContext` alone has none.
bool SuspendThread(void* thread);

bool ResumeThread(void* thread);

/// The register state of a thread, which may be running; false if it has ended, does not answer or is the
/// calling one.
bool GetThreadContext(void* thread, ThreadContext& context);

}  // namespace ZBase::os
