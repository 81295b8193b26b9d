#pragma once

#include <cstddef>

// Under AddressSanitizer memory of a chunk that was not handed out is poisoned.

#if defined(__SANITIZE_ADDRESS__)
#define ZBASE_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZBASE_ADDRESS_SANITIZER 1
#endif
#endif

#if defined(ZBASE_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

namespace ZBase {

#if defined(ZBASE_ADDRESS_SANITIZER)
inline void Poison(const void* memory, std::size_t size) {
    __asan_poison_memory_region(memory, size);
}
inline void Unpoison(const void* memory, std::size_t size) {
    __asan_unpoison_memory_region(memory, size);
}
#else
inline void Poison(const void*, std::size_t) {}
inline void Unpoison(const void*, std::size_t) {}
#endif

}  // namespace ZBase
