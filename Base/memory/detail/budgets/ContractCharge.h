#pragma once

#include <cstddef>

namespace ZBase {

class MemoryContract;

// The two steps of a charge for memory that is not a chunk. A contract takes 32 bits: larger sizes are
// requested, and settled, as 4,294,967,295 bytes, so that more memory never costs less.

/// Throws `ContractManagerAllocException` when the contract refuses.
void RequestFromContract(MemoryContract& contract, std::size_t bytes);

void SettleWithContract(MemoryContract& contract, std::size_t bytes);

}  // namespace ZBase
