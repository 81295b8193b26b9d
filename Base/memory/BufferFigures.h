#pragma once

#include <Base/frame/Api.h>

#include <cstddef>

namespace ZBase {

/// What all buffers of the process hold. Counted chunk by chunk, so that the ordinary allocation costs
/// nothing more. The first chunk of a small buffer, at most a page that lies with the buffer in one heap
/// block, is not counted.
struct BufferFigures {
    std::size_t heapChunks;       // chunks that came from the heap
    std::size_t heapBytes;        // bytes in them
    std::size_t onBoundaryBytes;  // bytes in whole pages: `Buffer::GetOnBoundaryAllocTotal`
};

/// Each figure by itself as it is at the moment. May be called on any thread.
ZBASE_API BufferFigures GetBufferFigures() noexcept;

}  // namespace ZBase
