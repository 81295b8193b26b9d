#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

namespace ZBase::os {

/// The readable memory of the calling thread's stack, so that a damaged frame ends a walk and not the
/// process. On the stack that the thread was started on this takes no system call. On another one (a
/// signal's, a coroutine's) each page is tested once by a system call, and the thread caches the result.
class OwnStack {
public:
    /// For the stack that `stackPointer` points into.
    explicit OwnStack(std::uint64_t stackPointer);

    /// Memory from the stack pointer to here is readable.
    std::uint64_t End() const { return mEnd; }

    /// Moves the end to `end` or above it; false if memory below is not readable.
    bool Reach(std::uint64_t end);

    /// Whether the word at `address` is readable, on this stack or elsewhere.
    bool Holds(std::uint64_t address);

    /// Reads a word if it is readable; the argument is an `OwnStack`.
    static bool Load(void* stack, std::uint64_t address, std::uint64_t& value);

private:
    std::uint64_t mStart;
    std::uint64_t mEnd;
    std::uint64_t mPage = 1;  // another readable page
    bool mIsThreads;
};

}  // namespace ZBase::os
