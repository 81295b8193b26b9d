#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>

#include <cstddef>

namespace ZBase {

/// A copy of the path that was set; empty, never null, when none was. Must not run beside `SetContainerPath`.
/// Throws `std::bad_alloc`.
ZBASE_API ReturnString GetContainerPath();

/// `path` must not be null; an empty one empties the path. Throws `std::bad_alloc`.
ZBASE_API void SetContainerPath(const char* path);

/// The locale that the process moved to when the library was loaded; empty if the system refused. Valid for
/// the life of the library.
ZBASE_API const char* GetProcessLocale();

/// Stores the system's page size in bytes, unless `pageSize` is null. Always true.
ZBASE_API bool GetSymPageSize(std::size_t* pageSize);

}  // namespace ZBase
