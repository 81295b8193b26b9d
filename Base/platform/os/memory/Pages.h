#pragma once

#include <cstddef>

namespace ZBase::os {

/// The system's page size in bytes.
std::size_t PageSize();

// Whole pages from the system. The seam keeps a record of its allocations. Each failure is returned, with the
// reason as last code.

/// Zeroed, page-aligned, writable memory of `size` bytes, rounded up to whole pages; null if there is none.
void* AllocatePages(std::size_t size);

/// Frees all of an allocation by its start `address`.
bool ReleasePages(void* address);

/// Makes a range read-only: every page that it touches in memory of `AllocatePages`, otherwise the pages
/// wholly inside it, so that memory beside the range stays writable. An empty range is a success.
bool ProtectPages(void* address, std::size_t size);

/// Makes the pages that `ProtectPages` would protect for this range writable.
bool UnprotectPages(void* address, std::size_t size);

/// Frees every page that the range touches; its addresses stay reserved and an access faults. Refused for
/// memory that is not from `AllocatePages`.
bool DecommitPages(void* address, std::size_t size);

/// Zeroes a range of the process's own memory. The pages inside a large one take no memory until they are
/// used again. Keeps the last code.
void ClearMemory(void* address, std::size_t size);

}  // namespace ZBase::os
