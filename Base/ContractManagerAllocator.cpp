#include <Base/ContractManagerAllocator.h>

#include <Base/memory/MemoryContract.h>
#include <Base/memory/detail/MemoryFailures.h>

#include <memory>

namespace ZBase::detail {

namespace {

struct GiveBack {
    void operator()(void* memory) const { ::operator delete(memory); }
};

}  // namespace

void* AllocateUnderContract(std::size_t bytes, MemoryContract* contract) {
    if (contract == nullptr) return ::operator new(bytes);
    const auto amount = static_cast<unsigned int>(bytes);
    CheckContractAnswer(contract->Request(amount));
    std::unique_ptr<void, GiveBack> memory(::operator new(bytes));
    contract->Settle(amount);
    return memory.release();
}

}  // namespace ZBase::detail
