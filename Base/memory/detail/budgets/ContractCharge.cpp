#include <Base/memory/detail/budgets/ContractCharge.h>

#include <Base/memory/MemoryContract.h>
#include <Base/memory/detail/MemoryFailures.h>

#include <algorithm>
#include <limits>

namespace ZBase {

namespace {

unsigned int Amount(std::size_t bytes) {
    constexpr std::size_t most = std::numeric_limits<unsigned int>::max();
    return static_cast<unsigned int>(std::min(bytes, most));
}

}  // namespace

void RequestFromContract(MemoryContract& contract, std::size_t bytes) {
    CheckContractAnswer(contract.Request(Amount(bytes)));
}

void SettleWithContract(MemoryContract& contract, std::size_t bytes) {
    contract.Settle(Amount(bytes));
}

}  // namespace ZBase
