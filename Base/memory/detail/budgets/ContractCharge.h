#pragma once

#include <cstddef>

namespace ZBase {

class MemoryContract;

// The two steps of a charge for memory that is not a chunk. A contract is asked in 32 bits: what is more is
// asked for, and settled, as 4,294,967,295 bytes, so that nobody pays less by taking more.

/// Throws `ContractManagerAllocException` when the contract refuses.
void RequestFromContract(MemoryContract& contract, std::size_t bytes);

void SettleWithContract(MemoryContract& contract, std::size_t bytes);

}  // namespace ZBase
