#pragma once

#include <Base/diagnostics/CallStackLine.h>
#include <Base/frame/Api.h>

namespace ZBase {

/// A snapshot of a thread's stack, every frame looked up. One object belongs to one thread at a time.
class ZBASE_API CallStack {
public:
    /// The frame at `index`, which is not checked; 0 is the innermost.
    virtual CallStackLine& GetLine(unsigned int index) = 0;

    virtual unsigned int GetLineCount() = 0;

    /// Destroys the stack. As a virtual function it can't be called on a null pointer.
    virtual void Delete() = 0;

    /// The texts of all frames, separated by line feeds; valid until the next call.
    virtual const unsigned short* ToString() = 0;

    virtual ~CallStack() = default;
};

/// The stack of a thread by its native handle, or of the calling thread for null; line 0 is then the caller.
/// Of another thread the five innermost frames are left out. The caller frees the result with `Delete`. A
/// stack that can't be captured has no lines; the result is null only when the object can't be allocated. A
/// thread must not pass its own handle: it would wait for itself for ever. Throws `std::bad_alloc` when
/// memory runs out during the walk. One capture runs at a time in the process.
///
/// Another thread is stopped wherever it is, mostly once and for less than a millisecond, and resumes before
/// anything is looked up. It is stopped by a real-time signal, the highest free one below SIGRTMAX, with
/// SA_RESTART; system calls that are never restarted fail with EINTR (sleeps, `poll`, `epoll_wait`, `pause`,
/// calls with a time-out). A thread that blocks that signal or waits for it by `sigtimedwait` is not stopped,
/// and has no lines.
ZBASE_API CallStack* CreateCallStack(void* thread);

/// The same by the system's id of a thread. Another thread keeps running, so its stack may be inconsistent;
/// of the calling thread line 0 is the caller.
ZBASE_API CallStack* CreateCallStackByThreadId(unsigned long threadId);

}  // namespace ZBase
