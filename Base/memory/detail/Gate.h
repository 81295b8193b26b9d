#pragma once

#include <atomic>
#include <cstdint>

namespace ZBase {

// A section of code that any number of threads may be inside at once, until it is closed for good: threads
// inside finish, no other enters. One atomic word holds both the flag and the count, so entering and closing
// are ordered.
//
// A forked child has no threads that would leave for those inside at the fork. So the word also holds the
// process that they entered in, and a count of another process is ignored.
class Gate {
public:
    // False, and the caller is not inside, if the gate is closed.
    bool Enter() {
        const std::uint64_t process = ThisProcess();
        std::uint64_t word = mWord.load(std::memory_order_relaxed);
        do {
            if ((word & kClosed) != 0) return false;
        } while (!mWord.compare_exchange_weak(word, Present(word, process) + kOne, std::memory_order_acq_rel,
                                              std::memory_order_relaxed));
        return true;
    }

    // True for the last to leave a closed gate, who then sees all writes of the others.
    bool Leave() {
        return (mWord.fetch_sub(kOne, std::memory_order_acq_rel) & kClosedAndInside) == (kClosed | kOne);
    }

    // No thread enters after this. If some are inside, `IsEmpty` is false, and `Leave` returns true to the
    // last of them.
    void Close() {
        const std::uint64_t process = ThisProcess();
        std::uint64_t word = mWord.load(std::memory_order_relaxed);
        while (!mWord.compare_exchange_weak(word, Present(word, process) | kClosed, std::memory_order_acq_rel,
                                            std::memory_order_relaxed)) {
        }
    }

    bool IsClosed() const { return (mWord.load(std::memory_order_acquire) & kClosed) != 0; }

    // Whether a gate that this process has closed is empty. If so the caller sees all writes of those who
    // were inside.
    bool IsEmpty() const { return (mWord.load(std::memory_order_acquire) & kClosedAndInside) == kClosed; }

private:
    // From the lowest bit: closed, the number inside, and the process in the upper half.
    static constexpr std::uint64_t kClosed = 1;
    static constexpr std::uint64_t kOne = 2;
    static constexpr std::uint64_t kClosedAndInside = 0xFFFFFFFF;

    // The number of forks between the process that loaded the library and this one, in the upper half.
    static std::uint64_t ThisProcess();

    // The word without the count of another process.
    static std::uint64_t Present(std::uint64_t word, std::uint64_t process) {
        return (word & ~kClosedAndInside) == process ? word : process | (word & kClosed);
    }

    std::atomic<std::uint64_t> mWord{0};
};

}  // namespace ZBase
