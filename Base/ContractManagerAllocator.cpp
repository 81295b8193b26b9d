#include <Base/ContractManagerAllocator.h>

#include <Base/memory/detail/budgets/ContractCharge.h>

#include <memory>

namespace ZBase::detail {

namespace {

struct GiveBack {
    void operator()(void* memory) const { ::operator delete(memory); }
};

}  // namespace

void* AllocateUnderContract(std::size_t bytes, MemoryContract* contract) {
    if (contract == nullptr) return ::operator new(bytes);
    RequestFromContract(*contract, bytes);
    std::unique_ptr<void, GiveBack> memory(::operator new(bytes));
    SettleWithContract(*contract, bytes);
    return memory.release();
}

}  // namespace ZBase::detail
