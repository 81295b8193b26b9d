#pragma once

#include <Base/frame/Api.h>

#include <cstddef>

namespace ZBase {

class Buffer;

/// From now on the chunks of one buffer grow to at most `chunkBytes`; those of the others as before. A buffer
/// whose chunks are as large already takes further ones of that size and no larger; a piece that needs more
/// still gets it, and 0 keeps chunks from growing at all. The last call counts; it may be made on any thread.
/// Where budgets refuse often, this keeps a lock-free buffer from asking for more each time.
///
/// False, and nothing happens, for null and for a buffer that is not the library's own.
ZBASE_API bool LimitGrowth(Buffer* buffer, std::size_t chunkBytes);

}  // namespace ZBase
