#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include <Base/platform/os/linux/processes/ForkLock.h>

namespace ZBase::os {

/// The page allocations of the process that were not freed, in the order of their addresses: a skip list
/// whose nodes are in pages of its own, so it needs no heap. Each store of a change leaves a valid list: an
/// entry is in the list from the store of its lowest link on, and the links above are only shortcuts. So a
/// child that was forked during a change of another thread finds the list either before or after it.
class PageRegistry {
public:
    static constexpr std::size_t kLevels = 12;  // a quarter of the entries of one level is in the next

    struct Entry {
        std::uintptr_t start;
        std::uintptr_t end;
        std::array<std::atomic<Entry*>, kLevels> next;
    };

    constexpr PageRegistry() = default;

    /// Adds an allocation; false if the system has no pages for the entry.
    bool Add(std::uintptr_t start, std::uintptr_t end) noexcept;

    /// Removes the allocation that begins at `start`; null if there is none. Pass it to `Drop`, or back by
    /// `Restore`.
    Entry* Take(std::uintptr_t start) noexcept;
    void Drop(Entry* entry) noexcept;
    void Restore(Entry* entry) noexcept;

    /// The allocation that contains `address`; false if there is none.
    bool Find(std::uintptr_t address, std::uintptr_t& start, std::uintptr_t& end) noexcept;

private:
    using Path = std::array<Entry*, kLevels>;

    Entry* NewEntry() noexcept;
    void Insert(Entry* entry) noexcept;
    Entry* Before(std::uintptr_t start, Path& path) noexcept;
    std::size_t NextHeight() noexcept;

    ForkLock mLock;
    Entry mHead{};                          // before all others
    std::atomic<Entry*> mpUnused{nullptr};  // linked by their lowest link
    std::uint32_t mRandom = 1;
};

}  // namespace ZBase::os
