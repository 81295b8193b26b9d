#pragma once

#include <type_traits>

namespace ZBase {

/// A number, an enumerator or a pointer, which would pass for a `bool`. Functions that take a flag are
/// deleted for it: a size or a text in the place of the flag does not compile.
template <class T>
concept NotBool = std::is_scalar_v<T> && !std::is_same_v<T, bool>;

}  // namespace ZBase
