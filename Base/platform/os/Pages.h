#pragma once

#include <cstddef>

namespace ZBase::os {

/// The system's page size in bytes.
std::size_t PageSize();

// Whole pages from the system. The seam remembers what it gave. Each failure is told by the result, with the
// reason as last code.

/// Zeroed, page-aligned, writable memory of `size` bytes, rounded up to whole pages; null if there is none.
void* AllocatePages(std::size_t size);

/// Gives back all of an allocation, whose start is `address`.
bool ReleasePages(void* address);

/// Makes a range read-only: every page that it touches in memory that `AllocatePages` gave, otherwise the
/// pages that lie wholly inside it, so that what stands beside the range stays writable. An empty range is a
/// success.
bool ProtectPages(void* address, std::size_t size);

/// Makes the pages that `ProtectPages` takes for this range writable.
bool UnprotectPages(void* address, std::size_t size);

/// Drops every page that the range touches; its addresses stay taken and an access faults. Refused for memory
/// that `AllocatePages` did not give.
bool DecommitPages(void* address, std::size_t size);

/// Zeroes a range of memory that is the process's own. The pages inside a large one take no memory until they
/// are used again. Keeps the last code.
void ClearMemory(void* address, std::size_t size);

}  // namespace ZBase::os
