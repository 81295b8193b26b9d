#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace test {

/// The index of a virtual operation in the table of its class, from 0 on. Modules of another compiler call it
/// by that. A destructor takes two.
template <class Operation>
std::size_t PlaceInTable(Operation operation) {
    std::uintptr_t words[2];
    static_assert(sizeof words == sizeof operation);
    std::memcpy(words, &operation, sizeof words);
    return words[0] / sizeof(void*);
}

}  // namespace test
