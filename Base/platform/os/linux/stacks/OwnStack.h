#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

namespace ZBase::os {

/// Which memory of the calling thread's stack can be read, so that a damaged frame ends a walk and not the
/// process. Of the stack that the thread was started on this is known without a call of the system. On
/// another one (a signal's, a coroutine's) the system is asked once for each page, and the thread remembers
/// the answer.
class OwnStack {
public:
    /// Of the stack that `stackPointer` points into.
    explicit OwnStack(std::uint64_t stackPointer);

    /// All from the stack pointer to here can be read.
    std::uint64_t End() const { return mEnd; }

    /// Moves the end to `end` or above it; false if not all the memory below can be read.
    bool Reach(std::uint64_t end);

    /// Whether the word at `address` can be read, on this stack or elsewhere.
    bool Holds(std::uint64_t address);

    /// Reads words that can be read; the argument is an `OwnStack`.
    static bool Load(void* stack, std::uint64_t address, std::uint64_t& value);

private:
    std::uint64_t mStart;
    std::uint64_t mEnd;
    std::uint64_t mPage = 1;  // one more that can be read
    bool mIsThreads;
};

}  // namespace ZBase::os
