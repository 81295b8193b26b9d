#pragma once

#include <Base/frame/Api.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

namespace ZBase {
class Buffer;
}

// Declared with `Buffer`: a piece of the buffer, which is not freed on its own.
ZBASE_API void* operator new(std::size_t size, ZBase::Buffer* buffer);

namespace ZBase {

/// Standard allocator of the strings and containers in exported signatures. Without a `Buffer` it allocates
/// from the heap; with one it allocates pieces of the buffer and never frees, since a buffer frees its memory
/// only as a whole. Throws `std::bad_array_new_length` for a count whose bytes no object can have, and
/// whatever the heap or `Buffer::Allocate` throws.
///
/// A container in a buffer must end before the buffer. A copy of it is in the heap, and so is the sum of two
/// strings, unless one of them is a temporary, whose memory it then uses; an assignment, by copy or move,
/// keeps the target's buffer. Only swap and move construction carry the buffer over.
template <class T>
class Allocator {
public:
    using value_type = T;

    // A swap exchanges the blocks, so it must exchange the buffers that free them.
    using propagate_on_container_swap = std::true_type;
    // An assignment must not: a container in the heap, or in one buffer, would come to depend on another.
    using propagate_on_container_copy_assignment = std::false_type;
    using propagate_on_container_move_assignment = std::false_type;
    using is_always_equal = std::false_type;

    /// The allocator of a copy: the heap, since the copy's code does not show that it needs a buffer.
    Allocator select_on_container_copy_construction() const noexcept { return Allocator(); }

    Allocator() noexcept = default;
    explicit Allocator(Buffer* buffer) noexcept : mpBuffer(buffer) {}
    template <class U>
    Allocator(const Allocator<U>& other) noexcept : mpBuffer(other.GetBuffer()) {}

    [[nodiscard]] T* allocate(std::size_t count) {
        static_assert(alignof(T) <= 8, "a piece of a buffer is aligned to 8 bytes");
        if (count > PTRDIFF_MAX / sizeof(T)) throw std::bad_array_new_length();
        const std::size_t size = count * sizeof(T);
        return static_cast<T*>(mpBuffer == nullptr ? ::operator new(size) : ::operator new(size, mpBuffer));
    }

    void deallocate(T* memory, std::size_t) noexcept {
        if (mpBuffer == nullptr) ::operator delete(memory);
    }

    Buffer* GetBuffer() const noexcept { return mpBuffer; }

    template <class U>
    bool operator==(const Allocator<U>& other) const noexcept {
        return mpBuffer == other.GetBuffer();
    }

private:
    Buffer* mpBuffer = nullptr;  // held, not owned; null for the heap
};

}  // namespace ZBase
