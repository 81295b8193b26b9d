#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

namespace ZBase::os {

/// Memory of a heap of its own, so that the program's heap may itself stand on the pages that are registered.
void* AllocateFromPrivateHeap(std::size_t octets);
void FreeFromPrivateHeap(void* block) noexcept;

/// The page allocations of the process that were not given back, by their starts. Safe between threads.
class PageRegistry {
public:
    template <class T>
    struct PrivateAllocator {
        using value_type = T;
        PrivateAllocator() = default;
        template <class Other>
        PrivateAllocator(const PrivateAllocator<Other>&) {}
        T* allocate(std::size_t count) { return static_cast<T*>(AllocateFromPrivateHeap(count * sizeof(T))); }
        void deallocate(T* block, std::size_t) noexcept { FreeFromPrivateHeap(block); }
        bool operator==(const PrivateAllocator&) const = default;
    };
    using Map = std::map<std::uintptr_t, std::uintptr_t, std::less<>,
                         PrivateAllocator<std::pair<const std::uintptr_t, std::uintptr_t>>>;
    using Entry = Map::node_type;

    /// Notes an allocation; false if there is no memory for that.
    bool Add(std::uintptr_t start, std::uintptr_t end) noexcept;

    /// Takes the allocation that begins at `start` out; empty if there is none. It may come back by
    /// `Restore`.
    Entry Take(std::uintptr_t start) noexcept;
    void Restore(Entry entry) noexcept;

    /// The allocation that `address` lies in; false if there is none.
    bool Find(std::uintptr_t address, std::uintptr_t& start, std::uintptr_t& end) noexcept;

    /// That of this process, which outlives all that could use it.
    static PageRegistry& OfProcess();

private:
    Map mEntries;
    void* mLock = nullptr;  // an SRWLOCK
};

}  // namespace ZBase::os
