#pragma once

#include <cstdint>
#include <string_view>

struct link_map;

namespace ZBase::os {

/// Where a module lies, from the start of its first segment to the end of its last.
struct ModulePlace {
    std::uint64_t start;
    std::uint64_t end;
    const link_map* map;

    /// The module that has a segment at `address`; false if none has. No lock, no heap.
    static bool Find(std::uint64_t address, ModulePlace& place);

    /// The octets of its build id where they are mapped; empty if it has none. No lock, no heap.
    std::string_view BuildId() const;
};

}  // namespace ZBase::os
