#pragma once

#include <sys/types.h>

#include <Base/platform/os/linux/processes/CancellationHeldBack.h>
#include <Base/platform/os/stacks/ThreadContext.h>

namespace ZBase::os {

/// Stops one thread after another for a caller that must take no lock, not even the loader's. While it
/// exists, no other capture stops a thread.
class ThreadStops {
public:
    /// Waits at most that long for its turn.
    explicit ThreadStops(long nanoseconds);
    ~ThreadStops();
    ThreadStops(const ThreadStops&) = delete;
    ThreadStops& operator=(const ThreadStops&) = delete;

    /// Calls `visit(argument, context)` while the thread is stopped. False, without a call, if it takes no
    /// signals, has ended or does not stop in time.
    bool Visit(pid_t thread, long nanoseconds, void (*visit)(void* argument, const ThreadContext& context),
               void* argument);

private:
    CancellationHeldBack mCancellation;
    bool mHasTurn = false;
    bool mIsOwnAnswer = false;  // the handler is removed at the end
};

}  // namespace ZBase::os
