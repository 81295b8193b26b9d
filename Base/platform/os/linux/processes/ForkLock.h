#pragma once

#include <atomic>
#include <cstdint>

namespace ZBase::os {

/// A lock that is free in a child, however that was made: by `fork`, by `_Fork`, which calls no handlers, or
/// by the system call itself; the child has no thread that would release it. It needs no heap and can't fail.
/// The data under it must be valid after each single store, since a child may be made between any two.
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

    std::atomic<Word*> mpWord{nullptr};      // in a page that the kernel zeroes in a child
    Word mOwnWord{0};                        // where there is no such page
    std::atomic<ForkLock*> mpNext{nullptr};  // of those that a fork handler resets
};

}  // namespace ZBase::os
