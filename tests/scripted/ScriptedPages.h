#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test {

constexpr std::size_t kScriptedPageSize = 16384;

struct PageCall {
    std::string name;
    const void* address;
    std::size_t size;
    bool operator==(const PageCall&) const = default;
};

/// The system's pages for the logic: the calls, and which call of a kind fails, counted from 0; -1 for none.
struct Pages {
    std::vector<PageCall> calls;
    int failingAllocation = -1;
    int failingProtection = -1;
    int failingUnprotection = -1;
    int failingDecommit = -1;
    int held = 0;  // allocations that were not freed

    /// The calls of one kind.
    std::vector<PageCall> Calls(const std::string& name) const;
};

inline Pages gPages;

}  // namespace test
