#pragma once

#include <cstddef>

namespace ZBase {

// Throws `MemGoverningException` when a governor refuses a chunk of `size` bytes.
void AskMemGovernors(std::size_t size);

// Calls every governor with the `total` bytes that are freed.
void CreditMemGovernors(std::size_t total);

}  // namespace ZBase
