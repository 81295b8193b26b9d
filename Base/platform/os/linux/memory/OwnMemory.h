#pragma once

#include <cstddef>
#include <cstdint>

namespace ZBase::os {

/// Copies memory of this process, any of which may be unmapped or not readable: the number of octets up to
/// the first page that is not. No heap, no lock; for signal handlers too. Leaves `errno`.
std::size_t CopyOwnMemory(std::uint64_t address, void* to, std::size_t size);

}  // namespace ZBase::os
