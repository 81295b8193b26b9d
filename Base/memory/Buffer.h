#pragma once

#include <Base/frame/Allocator.h>
#include <Base/frame/Api.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

namespace ZBase {

/// A region allocator: pieces are never freed one by one; all memory is freed when the buffer is destroyed.
/// Made by a factory function (CreateBuffer.h), destroyed by `Delete`.
class ZBASE_API Buffer {
public:
    /// Which class a process runs on.
    enum EBufferChoice {
        eBufferChoiceUndecided = 0,
        eBufferChoiceImplementation = 1,
        eBufferChoiceLockFree = 2,
    };

    /// Destroys the buffer with everything in it, after the clean-ups have run. They may write to its pieces
    /// even when it is locked, and register further ones. An exception of a clean-up passes through, after
    /// the memory was freed; later clean-ups are not called.
    virtual void Delete() = 0;

    /// Makes sure that a later `Allocate(size)` can be served. False where `Allocate` would throw; throws
    /// only what a contract or a governor throws itself, as `StringConversionException` for the text of a
    /// refusal that is no proper UTF-16, or `std::bad_function_call` for a governor without a function.
    ///
    /// On a lock-free buffer a refused chunk leaves an empty entry of some 26 bytes; and a size from the
    /// growth limit up (`ZENT_BUFFER_DYNAMIC_GROW_LIMIT`) brings an ordinary chunk, which smaller pieces will
    /// be taken from, while `Allocate` of such a size always takes a chunk of its own.
    virtual bool EnsureAvailable(std::size_t size) = 0;

    /// A piece of at least `size` bytes, 0 counting as 1, aligned to 8 bytes. Never null. Throws
    /// `BufferException` when the buffer is locked or over its limit, `ContractManagerAllocException` or
    /// `MemGoverningException` when a budget refuses, `std::bad_alloc` when there is no memory.
    ///
    /// Chunks grow by half, up to the first that passes the growth limit (with its default of 256 MiB the
    /// last is 377,524,224 bytes). On a lock-free buffer the next chunk grows before this one is requested,
    /// and a refusal does not undo that: after each refusal the next request is larger. After a refusal
    /// nothing is requested again. Where budgets refuse often, lower the growth limit, clear
    /// `sGrowDanamically`, or use a buffer for one thread, which grows only by chunks that it got.
    virtual void* Allocate(std::size_t size) = 0;

    /// Memory held, in KiB, rounded down.
    virtual std::size_t GetTotalKB() = 0;

    /// Memory handed out, in KiB, rounded down.
    virtual std::size_t GetUsedKB() = 0;

    /// Memory held, in bytes.
    virtual std::size_t GetTotalBytes() = 0;

    /// Memory handed out, in bytes, each piece rounded up to a multiple of 8.
    virtual std::size_t GetUsedBytes() = 0;

    /// Makes all memory of the buffer read-only and refuses further allocation. Of a heap buffer only whole
    /// pages within its chunks are protected. Throws `BufferException` when memory can't be protected; pages
    /// protected until then stay so, and a lock-free buffer refuses allocation all the same.
    ///
    /// Other threads may use a lock-free buffer meanwhile: `AddCleanup` and `Allocate` either succeed or
    /// throw. A piece that is handed out at that moment may be read-only already, or stay writable.
    virtual void Lock() = 0;

    /// Limits the memory held to `limit` bytes; 0 or less means no limit. One more chunk may exceed it, if
    /// the total is at or below the limit before.
    virtual void SetLimit(std::int64_t limit) = 0;

    /// Registers `function(argument)` to be called when the buffer is destroyed: the oldest first on a buffer
    /// for one thread, the newest first on a lock-free one, where it also fails as `Allocate` does.
    virtual void AddCleanup(void (*function)(void*), void* argument) = 0;

    /// Credits the governors with what this buffer holds; from now on they are not called for it. A chunk
    /// whose request to the governors is under way, in another thread or in the governor that calls this, is
    /// credited once it was acquired, with all other such chunks, by the thread of the last of them.
    virtual void DetachFromGovernors() = 0;

    virtual bool IsDetachedFromGovernors() = 0;

    /// The class that `CreateBuffer` makes, decided now if possible; undecided while the feature flags are
    /// not initialised.
    static EBufferChoice GetDefaultBufferImplementation();

    /// Bytes held by all on-boundary buffers of the process.
    static std::size_t GetOnBoundaryAllocTotal();

    /// Block size in bytes of every buffer that is created with a block size of 0. Read from
    /// `ZENT_BUFFER_BLOCK_SIZE` at load; may be written.
    static std::size_t sDefaultBlockSize;

    /// Whether chunks grow. May be written. Misspelt; kept for callers that use the name.
    static bool sGrowDanamically;

    /// Default and smallest value of `ZENT_BUFFER_DYNAMIC_GROW_LIMIT`, in MiB.
    static const std::size_t sDefaultGrowLimitInMB;
    static const std::size_t sMinimumGrowLimitInMB;

protected:
    virtual ~Buffer() noexcept(false) {}
};

namespace detail {

/// Parameter of the placement operators with an alignment. With a plain `Buffer*` g++ would consider them for
/// `new (memory) T` with a `void*` too, and reject that.
struct PlaceInBuffer {
    template <class AnyBuffer>
        requires std::is_convertible_v<AnyBuffer*, Buffer*>
    PlaceInBuffer(AnyBuffer* buffer) noexcept : mpBuffer(buffer) {}

    Buffer* mpBuffer;  // held, not owned
};

}  // namespace detail

}  // namespace ZBase

/// A piece of the buffer: `buffer->Allocate(size)`, so aligned to 8 bytes only. No destructor is registered.
///
/// For a type that needs more the compiler takes the forms with an alignment below, but only if it needs more
/// than `__STDCPP_DEFAULT_NEW_ALIGNMENT__`: one that needs exactly 16 bytes is silently misaligned by `new
/// (buffer) T`, as this operator does not get the type. `New<T>(buffer, ...)` (New.h) aligns every type; or
/// compile with `-faligned-new=8`, and the compiler takes the right form for 16 too. The form for one object
/// is declared with `Allocator`.
ZBASE_API void* operator new[](std::size_t size, ZBase::Buffer* buffer);

/// A piece that is large enough to begin at a multiple of `alignment`, a power of two. Throws what `Allocate`
/// throws, and `std::bad_alloc` for an alignment that no memory can have.
ZBASE_API void* operator new(std::size_t size, std::align_val_t alignment,
                             ZBase::detail::PlaceInBuffer place);
ZBASE_API void* operator new[](std::size_t size, std::align_val_t alignment,
                               ZBase::detail::PlaceInBuffer place);

/// For a constructor that throws: the piece stays with the buffer.
ZBASE_API void operator delete(void* memory, ZBase::Buffer* buffer) noexcept;
ZBASE_API void operator delete[](void* memory, ZBase::Buffer* buffer) noexcept;
ZBASE_API void operator delete(void*, std::align_val_t, ZBase::detail::PlaceInBuffer place) noexcept;
ZBASE_API void operator delete[](void*, std::align_val_t, ZBase::detail::PlaceInBuffer place) noexcept;
