#pragma once

#include <cstddef>

namespace test {

/// Live blocks of the global heap in this process that came from `operator new`.
std::size_t LiveBlocks();

/// Calls of `operator new` on this thread so far, and their bytes.
std::size_t AllocationCount();
std::size_t AllocatedBytes();

/// Copies the beginning of a block at the moment when it is freed on this thread.
class FreedBlock {
public:
    /// Watches the first `octets` of a live block, at most 8.
    FreedBlock(const void* block, std::size_t octets);
    ~FreedBlock();
    FreedBlock(const FreedBlock&) = delete;
    FreedBlock& operator=(const FreedBlock&) = delete;

    bool IsFreed() const;
    const unsigned char* Octets() const;
};

/// While it lives, `count` allocations of this thread fail: from number `index` from now on, counted from 0.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t index, std::size_t count = 1);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether such an allocation was attempted, and failed.
    bool HasFailed() const;
};

/// Calls `operation()` with its first allocation failing, then with its second, and so on until it succeeds.
/// Returns the number of calls in which one failed.
template <class Operation>
std::size_t ForEachFailingAllocation(Operation operation) {
    for (std::size_t index = 0;; ++index) {
        FailingAllocation failing(index);
        operation();
        if (!failing.HasFailed()) return index;
    }
}

}  // namespace test
