#pragma once

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ZBase::os {

/// The content of the thread's /proc file of that name, up to the capacity; empty if it can't be read. Needs
/// no descriptor. No heap, no lock.
std::string_view ReadThreadFile(pid_t thread, const char* name, char* room, std::size_t capacity);

/// The number after `name` in `text`, or 0.
std::uint64_t NumberBehind(std::string_view text, std::string_view name, int base);

}  // namespace ZBase::os
