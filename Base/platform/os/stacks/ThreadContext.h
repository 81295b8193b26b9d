#pragma once

#include <cstdint>

#if defined(__x86_64__) || defined(_M_X64)
#include <Base/platform/os/stacks/x86_64/ContextRecord.h>
#else
#error \
    "Another processor brings a ThreadContext and where a walk begins in it: see os/stacks/x86_64/ContextRecord.h \
and docs/porting.md"
#endif

namespace ZBase::os {

/// A frame of a stack: its instruction address, and the stack pointer there.
struct RecordedFrame {
    std::uint64_t address;
    std::uint64_t stackPointer;
};

/// Marks a context as recorded: `parameterHome` begins with this, the address of the recorded frames and
/// their number. Its thread has resumed, and a walk returns the recorded frames.
inline constexpr std::uint64_t kRecordedFrames = 0x7365'6D61'7246'425A;

inline constexpr std::uint32_t kThreadGetContext = 8;

/// Stores the general registers as the caller sees them when the call returns. No heap, no lock.
void CaptureContext(ThreadContext* context);

/// Calls `filter(argument, context)` with a register state of the calling thread so many frames further in
/// than the caller of this function; those frames stay in place meanwhile.
inline constexpr unsigned int kFramesOfOwnContext = 2;
void CallWithOwnContext(void (*filter)(void* argument, ThreadContext& context), void* argument);

// Threads are given by handle: the native handle of `std::thread`, or the result of `OpenThread`.

/// A handle on the thread with this id, or null if there is none.
void* OpenThread(std::uint32_t access, unsigned long threadId);

void CloseThread(void* thread);

/// Stops a thread wherever it is, whatever locks it holds: until `ResumeThread` the caller must take no lock,
/// including the heap's. False if the thread has ended, takes no signals now (all of them blocked, or waited
/// for by `sigtimedwait`) or does not stop within a second, or if the handle has no right to it: a handle of
/// `OpenThread` with only `kThreadGetContext` has none.
bool SuspendThread(void* thread);

bool ResumeThread(void* thread);

/// The register state of a thread, which may be running; false if it has ended, takes no signals, does not
/// reply or is the calling one.
bool GetThreadContext(void* thread, ThreadContext& context);

/// Whether `SuspendThread` has stopped the thread.
bool IsSuspended(void* thread);

// For a fork: waits, for a bounded time, until no thread is being stopped, and keeps it so until one of the
// others is called. The last one is for the child, where no thread is stopped or being stopped.
void HoldThreadStops();
void ReleaseThreadStops();
void ForgetThreadStops();

}  // namespace ZBase::os
