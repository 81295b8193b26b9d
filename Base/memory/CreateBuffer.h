#pragma once

#include <Base/frame/Api.h>

#include <cstddef>

namespace ZBase {

class Buffer;
class MemoryContract;

// The factory functions of the buffers. Their arguments mean the same:
//
//   initialBlocks  blocks of the first chunk, which is taken at once; below 1: none before the first piece
//   growthBlocks   blocks of the next chunk, from where the chunks grow; below 1 counts as 1
//   contract       pays for the chunks and is held by one reference; may be null
//   blockSize      bytes of a block, raised to at least 256 and to a multiple of 256; 0 means
//                  `Buffer::sDefaultBlockSize`
//   onBoundary     whether chunks are whole pages from the virtual memory service instead of heap blocks
//
// They throw what the first chunk throws, see `Buffer::Allocate`. The result is never null.

/// A buffer of the implementation that the process has chosen: one for a single thread until the feature
/// flags are initialised; from then on, and for good, the lock-free one unless "Base/UseLockFreeBuffer" is
/// off.
ZBASE_API Buffer* CreateBuffer(int initialBlocks, int growthBlocks, MemoryContract* contract,
                               std::size_t blockSize, bool onBoundary);
ZBASE_API Buffer* CreateBuffer(int initialBlocks, int growthBlocks, std::size_t blockSize, bool onBoundary);

/// A buffer for one thread at a time. Calls that overlap end the process, unless `ZENT_BUFERROR_ABORT` is
/// "NO".
ZBASE_API Buffer* CreateBufferSingleThread(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                           std::size_t blockSize, bool onBoundary);

/// A buffer that forwards every call to an inner one, made by `CreateBuffer`; for the governors it counts as
/// detached. `onBoundary` is ignored, and the inner buffer takes heap blocks; kept for callers that rely on
/// it.
ZBASE_API Buffer* CreateDebugBuffer(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                    std::size_t blockSize, bool onBoundary);

/// A buffer for any number of threads at once.
ZBASE_API Buffer* CreateBufferThreadSafe(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                         std::size_t blockSize, bool onBoundary);

}  // namespace ZBase
