#pragma once

#include <Base/frame/Api.h>

#include <cstddef>

namespace ZBase {

/// What all buffers of the process hold. Counted by chunk, so that ordinary allocations cost nothing more.
/// The first chunk of a small buffer, at most a page in one heap block with it, is not counted.
struct BufferFigures {
    std::size_t heapChunks;       // chunks that came from the heap
    std::size_t heapBytes;        // bytes in them
    std::size_t onBoundaryBytes;  // bytes in whole pages: `Buffer::GetOnBoundaryAllocTotal`
};

/// Each figure is read by itself. May be called on any thread.
ZBASE_API BufferFigures GetBufferFigures() noexcept;

}  // namespace ZBase
