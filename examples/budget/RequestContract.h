#pragma once

#include <Base/ZBase.h>

#include <atomic>
#include <cstddef>

/// What one request of the server may spend on memory. Used by any number of threads, since a lock-free
/// buffer asks on each of them. Its reference count is atomic for the same reason; the last reference
/// destroys it.
class RequestContract final : public ZBase::MemoryContract {
public:
    explicit RequestContract(std::size_t bytes) : mLimit(bytes) {}

    void AddRef() override { ++mReferences; }
    void Release() override {
        if (--mReferences == 0) delete this;
    }

    unsigned int Request(unsigned int bytes) override { return Ask(bytes); }
    void Settle(unsigned int bytes) override { mSettled += bytes; }
    unsigned int RequestChunk(std::size_t bytes, bool) override { return Ask(bytes); }
    void SettleChunk(std::size_t bytes) override { mSettled += bytes; }

    // In bytes. What was granted and did not come, for want of memory or because a governor refused, is in
    // Granted and not in Settled.
    std::size_t Asked() const { return mAsked; }
    std::size_t Granted() const { return mGranted; }
    std::size_t Refused() const { return mAsked - mGranted; }
    std::size_t Settled() const { return mSettled; }

private:
    static constexpr unsigned int kQuotaExceeded = 1816;  // "not enough quota"

    ~RequestContract() override = default;

    unsigned int Ask(std::size_t bytes) {
        mAsked += bytes;
        std::size_t granted = mGranted;
        do {
            if (granted > mLimit || bytes > mLimit - granted) return kQuotaExceeded;
        } while (!mGranted.compare_exchange_weak(granted, granted + bytes));
        return 0;
    }

    const std::size_t mLimit;
    std::atomic<unsigned int> mReferences{0};
    std::atomic<std::size_t> mAsked{0};
    std::atomic<std::size_t> mGranted{0};
    std::atomic<std::size_t> mSettled{0};
};
