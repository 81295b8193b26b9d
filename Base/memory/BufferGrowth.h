#pragma once

#include <Base/frame/Api.h>

#include <cstddef>

namespace ZBase {

class Buffer;

/// From now on the chunks of one buffer grow to at most `chunkBytes`, on-boundary ones to the whole pages
/// of these; other buffers are not affected. A buffer with chunks that are larger already takes further ones
/// of that size and no larger; a piece that needs more still gets it, and 0 keeps chunks from growing at all.
/// The last call counts; it may be made on any thread. Where budgets refuse often, this keeps the requests of
/// a lock-free buffer from growing.
///
/// False, without effect, for null and for a buffer of another implementation.
ZBASE_API bool LimitGrowth(Buffer* buffer, std::size_t chunkBytes);

}  // namespace ZBase
