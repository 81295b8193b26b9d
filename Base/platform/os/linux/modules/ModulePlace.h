#pragma once

#include <cstdint>
#include <string_view>

struct link_map;

namespace ZBase::os {

/// The address range of a module, from the start of its first segment to the end of its last.
struct ModulePlace {
    std::uint64_t start;
    std::uint64_t end;
    const link_map* map;

    /// The module that has a segment at `address`; false if none has. No lock, no heap.
    static bool Find(std::uint64_t address, ModulePlace& place);

    /// The mapped octets of its build id; empty if it has none. No lock, no heap.
    std::string_view BuildId() const;
};

}  // namespace ZBase::os
