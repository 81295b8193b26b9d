#pragma once

#include <Base/frame/Standard.h>

#include <type_traits>

namespace ZBase {

/// A number, an enumerator or a pointer, which would convert to `bool`, or an object that converts through
/// one of these, as a `std::atomic<std::size_t>` does. Functions that take a flag are deleted for it: a size
/// or a text in the place of the flag does not compile. An object that converts to `bool` itself, such as
/// `std::true_type` and an element of a `std::vector<bool>`, is a flag.
template <class T>
concept NotBool =
    !std::is_same_v<T, bool> &&
    (std::is_scalar_v<T> || (std::is_convertible_v<T, bool> && !requires(T value) { bool{value}; }));

}  // namespace ZBase
