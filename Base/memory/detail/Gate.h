#pragma once

#include <atomic>
#include <cstdint>

namespace ZBase {

// A stretch of code that any number of threads may be inside at once, until it is closed for good: who came
// before stays and goes on, nobody comes after. One word holds both, so that of a thread that comes and one
// that closes each knows what the other has done.
class Gate {
public:
    // False, and the caller is not inside, when the gate is closed.
    bool Enter() {
        std::uint32_t word = mWord.load(std::memory_order_relaxed);
        do {
            if ((word & kClosed) != 0) return false;
        } while (!mWord.compare_exchange_weak(word, word + kOne, std::memory_order_acq_rel,
                                              std::memory_order_acquire));
        return true;
    }

    // True for the one who leaves a closed gate last. What all who were inside have done before is seen then.
    bool Leave() { return mWord.fetch_sub(kOne, std::memory_order_acq_rel) == (kClosed | kOne); }

    // True for the one who closes it with nobody inside. When somebody is, `Leave` tells the last of them.
    bool Close() { return mWord.fetch_or(kClosed, std::memory_order_acq_rel) == 0; }

    bool IsClosed() const { return (mWord.load(std::memory_order_acquire) & kClosed) != 0; }

    // Whether a closed gate has nobody inside any more. What they have done is seen then.
    bool IsEmpty() const { return mWord.load(std::memory_order_acquire) == kClosed; }

private:
    static constexpr std::uint32_t kClosed = 1;
    static constexpr std::uint32_t kOne = 2;

    std::atomic<std::uint32_t> mWord{0};
};

}  // namespace ZBase
