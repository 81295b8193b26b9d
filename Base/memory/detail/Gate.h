#pragma once

#include <atomic>
#include <cstdint>

namespace ZBase {

// A stretch of code that any number of threads may be inside at once, until it is closed for good: who came
// before stays and goes on, nobody comes after. One word holds both, so that of a thread that comes and one
// that closes each knows what the other has done.
//
// A fork leaves threads behind that were inside and never leave. So the word also holds in which process they
// came, and those of another do not count.
class Gate {
public:
    // False, and the caller is not inside, when the gate is closed.
    bool Enter() {
        const std::uint64_t process = ThisProcess();
        std::uint64_t word = mWord.load(std::memory_order_relaxed);
        do {
            if ((word & kClosed) != 0) return false;
        } while (!mWord.compare_exchange_weak(word, Present(word, process) + kOne, std::memory_order_acq_rel,
                                              std::memory_order_relaxed));
        return true;
    }

    // True for the one who leaves a closed gate last. What all who were inside have done before is seen then.
    bool Leave() {
        return (mWord.fetch_sub(kOne, std::memory_order_acq_rel) & kClosedAndInside) == (kClosed | kOne);
    }

    // Nobody comes in after this. Who still was inside is told by `IsEmpty`, and by `Leave` to the last of
    // them.
    void Close() {
        const std::uint64_t process = ThisProcess();
        std::uint64_t word = mWord.load(std::memory_order_relaxed);
        while (!mWord.compare_exchange_weak(word, Present(word, process) | kClosed, std::memory_order_acq_rel,
                                            std::memory_order_relaxed)) {
        }
    }

    bool IsClosed() const { return (mWord.load(std::memory_order_acquire) & kClosed) != 0; }

    // Whether a gate that this process has closed has nobody inside any more. What they have done is seen
    // then.
    bool IsEmpty() const { return (mWord.load(std::memory_order_acquire) & kClosedAndInside) == kClosed; }

private:
    // From the lowest bit: closed, how many are inside, and the process in the upper half.
    static constexpr std::uint64_t kClosed = 1;
    static constexpr std::uint64_t kOne = 2;
    static constexpr std::uint64_t kClosedAndInside = 0xFFFFFFFF;

    // How many forks lie between the process and that which loaded the library, in the upper half.
    static std::uint64_t ThisProcess();

    // The word without those that are inside in another process.
    static std::uint64_t Present(std::uint64_t word, std::uint64_t process) {
        return (word & ~kClosedAndInside) == process ? word : process | (word & kClosed);
    }

    std::atomic<std::uint64_t> mWord{0};
};

}  // namespace ZBase
