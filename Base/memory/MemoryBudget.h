#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/memory/MemoryContract.h>

#include <atomic>
#include <cstddef>

namespace ZBase {

/// A contract with a fixed sum of bytes, for one request of a server: the limit for its buffers and
/// conversions together. Any number of threads may use it, and its reference count is atomic; the last
/// reference destroys it.
///
///     const SmartPtrI<MemoryBudget> budget = MemoryBudget::Create(400'000);
///     const BufferPtr buffer(CreateBufferThreadSafe(0, 1, budget.Get(), 0, false));
class ZBASE_API MemoryBudget final : public MemoryContract {
public:
    /// A request for more than is left of `bytes` is refused with the system code 1816, "not enough quota".
    /// Throws `std::bad_alloc`.
    static SmartPtrI<MemoryBudget> Create(std::size_t bytes);

    void AddRef() override;
    void Release() override;

    unsigned int Request(unsigned int bytes) override;
    void Settle(unsigned int bytes) override;

    /// Takes back a grant of bytes that are no longer used, at most all that is granted. Only the owner of
    /// the budget calls it.
    void Refund(unsigned int bytes) override;

    unsigned int RequestChunk(std::size_t bytes, bool chunk) override;
    void SettleChunk(std::size_t bytes) override;

    // In bytes, each read by itself. Bytes that were granted but not allocated, for want of memory or because
    // a governor refused, are granted and not settled.
    std::size_t GetLimit() const { return mLimit; }
    std::size_t GetGranted() const { return mGranted; }
    std::size_t GetRefused() const { return mRefused; }
    std::size_t GetSettled() const { return mSettled; }

private:
    explicit MemoryBudget(std::size_t bytes);
    ~MemoryBudget() override;

    const std::size_t mLimit;
    std::atomic<unsigned int> mReferences{0};
    std::atomic<std::size_t> mGranted{0};
    std::atomic<std::size_t> mRefused{0};
    std::atomic<std::size_t> mSettled{0};
};

}  // namespace ZBase
