#pragma once

#include <Base/memory/Buffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace ZBase {

namespace detail {

// Constructs an object at `memory`, aggregates included.
template <class T, class... Arguments>
T* Construct(void* memory, Arguments&&... arguments) {
    if constexpr (std::is_constructible_v<T, Arguments...>) {
        return ::new (memory) T(std::forward<Arguments>(arguments)...);
    } else {
        return ::new (memory) T{std::forward<Arguments>(arguments)...};
    }
}

template <class T>
void Destroy(void* object) {
    std::destroy_at(static_cast<T*>(object));
}

// An array in a buffer whose elements are to be destroyed: the count, then the elements.
template <class T>
struct CountedArray {
    static constexpr std::size_t kAlignment = alignof(T) > alignof(std::size_t) ? alignof(T)
                                                                                : alignof(std::size_t);
    static constexpr std::size_t kOffset = (sizeof(std::size_t) + alignof(T) - 1) / alignof(T) * alignof(T);

    static T* Elements(void* memory) {
        return static_cast<T*>(static_cast<void*>(static_cast<unsigned char*>(memory) + kOffset));
    }

    // In reverse order, as the language does.
    static void Destroy(void* memory) {
        T* const elements = Elements(memory);
        for (std::size_t left = *static_cast<std::size_t*>(memory); left != 0; --left)
            std::destroy_at(elements + (left - 1));
    }
};

// Registers the destruction of an object; destroys it at once if that fails.
inline void EndWith(Buffer* buffer, void (*end)(void*), void* made) {
    try {
        buffer->AddCleanup(end, made);
    } catch (...) {
        end(made);
        throw;
    }
}

}  // namespace detail

/// An object in the buffer, aligned for its type, that is destroyed with the buffer, as one of its clean-ups,
/// which run the newest first on a lock-free buffer and the oldest first on one for one thread. A trivially
/// destructible type registers none. `buffer` is not null. Throws what `Allocate`, `AddCleanup` and the
/// constructor throw; then there is no object, and its memory stays with the buffer.
template <class T, class... Arguments>
    requires(!std::is_array_v<T>)
T* New(Buffer* buffer, Arguments&&... arguments) {
    void* const memory = ::operator new(sizeof(T), std::align_val_t{alignof(T)}, buffer);
    T* const object = detail::Construct<T>(memory, std::forward<Arguments>(arguments)...);
    if constexpr (!std::is_trivially_destructible_v<T>) detail::EndWith(buffer, detail::Destroy<T>, memory);
    return object;
}

/// `New<T[]>(buffer, count)`: the first of `count` value-initialised objects, which are destroyed from the
/// last to the first. Never null. Throws `std::bad_array_new_length` for a count whose bytes no object can
/// have, and what the form for one object throws.
template <class T>
    requires std::is_unbounded_array_v<T>
std::remove_extent_t<T>* New(Buffer* buffer, std::size_t count) {
    using Element = std::remove_extent_t<T>;
    using Counted = detail::CountedArray<Element>;
    if (count > (PTRDIFF_MAX - Counted::kOffset) / sizeof(Element)) throw std::bad_array_new_length();
    if constexpr (std::is_trivially_destructible_v<Element>) {
        void* const memory =
            ::operator new[](count * sizeof(Element), std::align_val_t{alignof(Element)}, buffer);
        auto* const elements = static_cast<Element*>(memory);
        std::uninitialized_value_construct_n(elements, count);
        return elements;
    } else {
        void* const memory = ::operator new[](Counted::kOffset + count * sizeof(Element),
                                              std::align_val_t{Counted::kAlignment}, buffer);
        ::new (memory) std::size_t(count);
        Element* const elements = Counted::Elements(memory);
        std::uninitialized_value_construct_n(elements, count);
        detail::EndWith(buffer, Counted::Destroy, memory);
        return elements;
    }
}

}  // namespace ZBase
