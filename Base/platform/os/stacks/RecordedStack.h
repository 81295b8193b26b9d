#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <Base/platform/os/stacks/ThreadContext.h>

namespace ZBase::os {

/// The frames of another thread's stack, recorded while it is stopped, to be looked up after it has resumed.
/// All memory is allocated before:
///
///     RecordedStack stack;
///     do {
///         // stop the thread, get its context, stack.Record(thread, context), let it go on
///     } while (stack.NeedsAnotherTry());
class RecordedStack {
public:
    /// Throws `std::bad_alloc`.
    RecordedStack();
    ~RecordedStack();
    RecordedStack(const RecordedStack&) = delete;
    RecordedStack& operator=(const RecordedStack&) = delete;

    /// Walks from `context`, which then refers to the recorded frames and must not outlive this. No heap, and
    /// no lock while the thread is stopped.
    void Record(void* thread, ThreadContext& context);

    /// Provides what the last `Record` lacked: memory for all frames, or the rules of code outside of
    /// modules. False if it lacked nothing, and after a few tries. The thread must not be stopped. Throws
    /// `std::bad_alloc`.
    bool NeedsAnotherTry();

private:
    struct Work;

    std::vector<RecordedFrame> mFrames;
    std::size_t mCount = 0;  // of all frames, also of those that did not fit
    unsigned int mTries = 0;
    std::unique_ptr<Work> mpWork;
};

}  // namespace ZBase::os
