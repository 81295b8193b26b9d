#pragma once

#include <cstddef>
#include <limits>
#include <new>
#include <type_traits>

namespace ZBase::detail {

/// The block of a result that is still being made, to be written into.
template <class Result>
auto* Writable(const Result& result) {
    return const_cast<std::remove_const_t<std::remove_pointer_t<decltype(result.c_str())>>*>(result.c_str());
}

/// `count` * `size`. Throws `std::bad_array_new_length` when that does not fit.
inline std::size_t CheckedProduct(std::size_t count, std::size_t size) {
    if (size != 0 && count > std::numeric_limits<std::size_t>::max() / size) {
        throw std::bad_array_new_length();
    }
    return count * size;
}

}  // namespace ZBase::detail
