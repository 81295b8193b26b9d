#pragma once

#include <Base/frame/Allocator.h>
#include <Base/frame/Api.h>

#include <cstddef>
#include <cstdint>

namespace ZBase {

/// A region allocator: pieces are asked for and never freed; all memory goes back when the buffer is
/// destroyed. Made by a factory function (CreateBuffer.h), destroyed by `Delete`.
class ZBASE_API Buffer {
public:
    /// Which class a process runs on.
    enum EBufferChoice {
        eBufferChoiceUndecided = 0,
        eBufferChoiceImplementation = 1,
        eBufferChoiceLockFree = 2,
    };

    /// Destroys the buffer with everything in it, after the clean-ups have run. What a clean-up throws passes
    /// through, after the memory has gone back; the clean-ups behind it are not called.
    virtual void Delete() = 0;

    /// Makes sure that a later `Allocate(size)` can be served. False where `Allocate` would throw; does not
    /// throw.
    virtual bool EnsureAvailable(std::size_t size) = 0;

    /// A piece of at least `size` bytes, 0 counting as 1, aligned to 8 bytes. Never null. Throws
    /// `BufferException` when the buffer is locked or over its limit, `ContractManagerAllocException` or
    /// `MemGoverningException` when a budget refuses, `std::bad_alloc` when there is no memory.
    virtual void* Allocate(std::size_t size) = 0;

    /// Memory held, in KiB, rounded down.
    virtual std::size_t GetTotalKB() = 0;

    /// Memory handed out, in KiB, rounded down.
    virtual std::size_t GetUsedKB() = 0;

    /// Memory held, in bytes.
    virtual std::size_t GetTotalBytes() = 0;

    /// Memory handed out, in bytes, each piece rounded up to a multiple of 8.
    virtual std::size_t GetUsedBytes() = 0;

    /// Makes all memory of the buffer read-only and refuses further allocation. Throws `BufferException` when
    /// the memory can't be protected.
    virtual void Lock() = 0;

    /// Limits the memory held to `limit` bytes; 0 or less means no limit. A total at or below the limit may
    /// be passed by one more chunk.
    virtual void SetLimit(std::int64_t limit) = 0;

    /// Registers `function(argument)` to be called when the buffer is destroyed: the oldest first on a buffer
    /// for one thread, the newest first on a lock-free one, where it also fails as `Allocate` does.
    virtual void AddCleanup(void (*function)(void*), void* argument) = 0;

    /// Gives the governors back what this buffer holds; from now on they are neither asked nor told.
    virtual void DetachFromGovernors() = 0;

    virtual bool IsDetachedFromGovernors() = 0;

    /// The class that `CreateBuffer` makes, decided now if it can be; undecided while the feature flags are
    /// not initialised.
    static EBufferChoice GetDefaultBufferImplementation();

    /// Bytes held by all on-boundary buffers of the process.
    static std::size_t GetOnBoundaryAllocTotal();

    /// Block size in bytes of every buffer that is created with a block size of 0. Read from
    /// `ZENT_BUFFER_BLOCK_SIZE` at load; may be written.
    static std::size_t sDefaultBlockSize;

    /// Whether chunks grow. May be written. The name is spelt so.
    static bool sGrowDanamically;

    /// Default and smallest value of `ZENT_BUFFER_DYNAMIC_GROW_LIMIT`, in MiB.
    static const std::size_t sDefaultGrowLimitInMB;
    static const std::size_t sMinimumGrowLimitInMB;

protected:
    virtual ~Buffer() noexcept(false) {}
};

}  // namespace ZBase

/// A piece of the buffer: `buffer->Allocate(size)`.
ZBASE_API void* operator new(std::size_t size, ZBase::Buffer* buffer);
ZBASE_API void* operator new[](std::size_t size, ZBase::Buffer* buffer);

/// For a constructor that throws: the piece stays with the buffer.
ZBASE_API void operator delete(void* memory, ZBase::Buffer* buffer) noexcept;
ZBASE_API void operator delete[](void* memory, ZBase::Buffer* buffer) noexcept;
