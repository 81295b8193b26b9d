#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include <Base/platform/os/linux/processes/ForkLock.h>

namespace ZBase::os {

/// The page allocations of the process that were not given back, in the order of their addresses: a skip list
/// whose nodes lie in pages of its own, so it needs no heap. Each store of a change leaves a list that is
/// whole: an entry is in the list from the store of its lowest link on, and the links above are short cuts
/// only. So a child that was forked in the midst of a change of another thread finds the list as it was or as
/// it is to be.
class PageRegistry {
public:
    static constexpr std::size_t kLevels = 12;  // a quarter of the entries of one level is in the next

    struct Entry {
        std::uintptr_t start;
        std::uintptr_t end;
        std::array<std::atomic<Entry*>, kLevels> next;
    };

    constexpr PageRegistry() = default;

    /// Notes an allocation; false if the system has no pages for that.
    bool Add(std::uintptr_t start, std::uintptr_t end) noexcept;

    /// Takes the allocation that begins at `start` out; null if there is none. It is then given to `Drop`, or
    /// back with `Restore`.
    Entry* Take(std::uintptr_t start) noexcept;
    void Drop(Entry* entry) noexcept;
    void Restore(Entry* entry) noexcept;

    /// The allocation that `address` lies in; false if there is none.
    bool Find(std::uintptr_t address, std::uintptr_t& start, std::uintptr_t& end) noexcept;

private:
    using Path = std::array<Entry*, kLevels>;

    Entry* NewEntry() noexcept;
    void Insert(Entry* entry) noexcept;
    Entry* Before(std::uintptr_t start, Path& path) noexcept;
    std::size_t NextHeight() noexcept;

    ForkLock mLock;
    Entry mHead{};                          // before all
    std::atomic<Entry*> mpUnused{nullptr};  // by their lowest link
    std::uint32_t mRandom = 1;
};

}  // namespace ZBase::os
