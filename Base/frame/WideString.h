#pragma once

#include <Base/frame/Allocator.h>

#include <string>

namespace ZBase {

/// Wide text of 16-bit units, in the heap or in a `Buffer`.
using WideString =
    std::basic_string<unsigned short, std::char_traits<unsigned short>, Allocator<unsigned short>>;

}  // namespace ZBase
