#pragma once

namespace test {

// What a sanitizer changes: signals come late, or the heap and the stack hold what is its own.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kHasThreadSanitizer = true;
#else
inline constexpr bool kHasThreadSanitizer = false;
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

}  // namespace test
