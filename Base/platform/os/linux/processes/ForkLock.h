#pragma once

#include <atomic>
#include <cstdint>

namespace ZBase::os {

/// A lock that is free in a child, however that came to be: by `fork`, by `_Fork`, which calls no handlers,
/// or by the kernel's own call. There no thread is left that could give it back. It needs no heap and can't
/// fail. What it guards must be sound after each single store, since a child may find it between any two.
class ForkLock {
public:
    constexpr ForkLock() = default;
    ForkLock(const ForkLock&) = delete;
    ForkLock& operator=(const ForkLock&) = delete;

    void lock() noexcept;
    void unlock() noexcept;

private:
    using Word = std::atomic<std::uint32_t>;

    Word& FindWord() noexcept;
    static void RenewAll() noexcept;

    std::atomic<Word*> mpWord{nullptr};      // in a page that the kernel empties in a child
    Word mOwnWord{0};                        // where there is no such page
    std::atomic<ForkLock*> mpNext{nullptr};  // of those that a handler renews
};

}  // namespace ZBase::os
