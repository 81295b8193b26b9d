#pragma once

#include <cstdint>
#include <string>

namespace ZBase::detail {

/// An address as reports print it: sixteen upper-case hexadecimal digits.
std::string PointerText(std::uint64_t address);
std::string PointerText(const void* address);

/// A wide text as reports hold it: UTF-8, what is no character replaced. Null is empty.
std::string ReportText(const unsigned short* text);

}  // namespace ZBase::detail
