#pragma once

#include <cstddef>

namespace ZBase {

// Throws `MemGoverningException` when a governor refuses a chunk of `size` bytes.
void AskMemGovernors(std::size_t size);

// Tells every governor that `total` bytes are given back.
void CreditMemGovernors(std::size_t total);

}  // namespace ZBase
