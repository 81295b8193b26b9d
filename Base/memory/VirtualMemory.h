#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ProcessSettings.h>

#include <cstddef>

namespace ZBase {

// Whole pages of memory from the system, behind callbacks by which a host puts its own page source under all
// on-boundary buffers of the process. Set them before the first such buffer is made: what came from a
// callback must go back through the matching one, and nobody keeps a record of it. These functions throw
// nothing.

/// Zeroed, page-aligned, writable memory of `size` bytes, or null. From the allocation callback, if one is
/// set and `useCallback` is true.
ZBASE_API void* ZNTVirtualAlloc(std::size_t size, bool useCallback);

/// Gives back all of an allocation by its start. 0 on success, 1 on failure; or the result of the release
/// callback, if one is set and `useCallback` is true. `size` is for the callback, and the buffers give 0.
ZBASE_API int ZNTVirtualFree(void* address, std::size_t size, bool useCallback);

/// Makes a range read-only. 0 on success, 1 on failure; always 1 while a protection callback is set, which
/// itself is never called. `flag` is not used.
ZBASE_API int ZNTVirtualProtect(void* address, std::size_t size, bool flag);

/// Gives the physical memory of a range back and keeps its addresses. True on success, unlike its sisters.
ZBASE_API bool ZNTDeCommit(void* address, std::size_t size);

/// Set and clear the callbacks; null clears as well.
ZBASE_API void SetCallBackVirtualAlloc(void* (*callback)(std::size_t));
ZBASE_API void UnSetCallBackVirtualAlloc();
ZBASE_API void SetCallBackVirtualFree(int (*callback)(void*, std::size_t));
ZBASE_API void SetCallBackVirtualProtect(int (*callback)(void*, std::size_t));
ZBASE_API void UnSetCallBackVirtualProtect();

}  // namespace ZBase
