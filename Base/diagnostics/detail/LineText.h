#pragma once

#include <cstdint>
#include <string>

namespace ZBase::detail {

/// An address as reports print it: sixteen upper-case hexadecimal digits.
std::string PointerText(std::uint64_t address);
std::string PointerText(const void* address);

/// A wide text as a line of a report holds it: UTF-8, with U+FFFD for each unit that is no character. Null is
/// empty.
std::string LineText(const unsigned short* text);

}  // namespace ZBase::detail
