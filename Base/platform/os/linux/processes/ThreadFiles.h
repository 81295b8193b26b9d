#pragma once

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ZBase::os {

/// What the system tells of a thread in its file of that name, as far as there is room for it; empty if it
/// tells nothing. No heap, no lock.
std::string_view ReadThreadFile(pid_t thread, const char* name, char* room, std::size_t capacity);

/// The number that stands behind `name` in `text`, or 0.
std::uint64_t NumberBehind(std::string_view text, std::string_view name, int base);

}  // namespace ZBase::os
