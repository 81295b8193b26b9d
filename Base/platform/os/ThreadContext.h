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

/// A frame of a stack: where its code is, and the stack pointer there.
struct RecordedFrame {
    std::uint64_t address;
    std::uint64_t stackPointer;
};

/// A context whose `parameterHome` begins with this mark, the address of recorded frames and their number
/// stands for them: its thread goes on, and a walk gives what was recorded.
inline constexpr std::uint64_t kRecordedFrames = 0x7365'6D61'7246'425A;

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

/// Stops a thread wherever it is, whatever locks it holds: until `ResumeThread` the caller may want none, not
/// that of the heap either. False if the thread has ended, takes no signals now (all of them blocked, or
/// waited for by `sigtimedwait`) or does not answer within a second, or if the handle has no right to it: a
/// handle of `OpenThread` with `kThreadGetContext` alone has none.
bool SuspendThread(void* thread);

bool ResumeThread(void* thread);

/// The register state of a thread, which may be running; false if it has ended, takes no signals, does not
/// answer or is the calling one.
bool GetThreadContext(void* thread, ThreadContext& context);

/// Whether `SuspendThread` has stopped the thread.
bool IsSuspended(void* thread);

// For a fork: waits, for a while, until no thread is being stopped, and holds that until one of the others is
// called, in the child the last: there no thread is stopped, and none is being stopped.
void HoldThreadStops();
void ReleaseThreadStops();
void ForgetThreadStops();

}  // namespace ZBase::os
