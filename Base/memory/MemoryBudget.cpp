#include <Base/memory/MemoryBudget.h>
#include <Base/memory/detail/budgets/BookedBytes.h>

namespace ZBase {

namespace {

constexpr unsigned int kNotEnoughQuota = 1816;

}  // namespace

SmartPtrI<MemoryBudget> MemoryBudget::Create(std::size_t bytes) {
    return new MemoryBudget(bytes);
}

MemoryBudget::MemoryBudget(std::size_t bytes) : mLimit(bytes) {}

MemoryBudget::~MemoryBudget() = default;

void MemoryBudget::AddRef() {
    mReferences.fetch_add(1, std::memory_order_relaxed);
}

void MemoryBudget::Release() {
    if (mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

unsigned int MemoryBudget::Request(unsigned int bytes) {
    return RequestChunk(bytes, false);
}

void MemoryBudget::Settle(unsigned int bytes) {
    SettleChunk(bytes);
}

void MemoryBudget::Refund(unsigned int bytes) {
    GiveBack(mGranted, bytes);
}

unsigned int MemoryBudget::RequestChunk(std::size_t bytes, bool) {
    if (Book(mGranted, bytes, mLimit)) return 0;
    mRefused.fetch_add(bytes, std::memory_order_relaxed);
    return kNotEnoughQuota;
}

void MemoryBudget::SettleChunk(std::size_t bytes) {
    mSettled.fetch_add(bytes, std::memory_order_relaxed);
}

}  // namespace ZBase
