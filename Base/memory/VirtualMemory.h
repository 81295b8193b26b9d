#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ProcessSettings.h>

#include <cstddef>

namespace ZBase {

// Whole pages of memory from the system, behind callbacks by which a host supplies its own page source to all
// on-boundary buffers of the process. Set them before the first such buffer is made: memory of one callback
// must be freed by the matching one, and the library does not record which. These functions do not throw.

/// Zeroed, page-aligned, writable memory of `size` bytes, or null. From the allocation callback, if one is
/// set and `useCallback` is true.
ZBASE_API void* ZNTVirtualAlloc(std::size_t size, bool useCallback);

/// Frees all of an allocation by its start. 0 on success, 1 on failure; or the result of the release
/// callback, if one is set and `useCallback` is true. `size` is for the callback, and the buffers pass 0.
ZBASE_API int ZNTVirtualFree(void* address, std::size_t size, bool useCallback);

/// Makes a range read-only. 0 on success, 1 on failure; always 1 while a protection callback is set, which
/// itself is never called. `flag` is not used.
ZBASE_API int ZNTVirtualProtect(void* address, std::size_t size, bool flag);

/// Frees the physical memory of a range and keeps its addresses. True on success, unlike the functions above.
ZBASE_API bool ZNTDeCommit(void* address, std::size_t size);

/// Set and clear the callbacks; null clears as well.
ZBASE_API void SetCallBackVirtualAlloc(void* (*callback)(std::size_t));
ZBASE_API void UnSetCallBackVirtualAlloc();
ZBASE_API void SetCallBackVirtualFree(int (*callback)(void*, std::size_t));
ZBASE_API void SetCallBackVirtualProtect(int (*callback)(void*, std::size_t));
ZBASE_API void UnSetCallBackVirtualProtect();

}  // namespace ZBase
