#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>

namespace ZBase {

// Raises `booked` by `bytes`, unless it would exceed `limit`.
inline bool Book(std::atomic<std::size_t>& booked, std::size_t bytes, std::size_t limit) {
    std::size_t before = booked.load(std::memory_order_relaxed);
    do {
        if (before > limit || bytes > limit - before) return false;
    } while (!booked.compare_exchange_weak(before, before + bytes, std::memory_order_relaxed));
    return true;
}

// Lowers `booked` by `bytes`, at most to 0.
inline void GiveBack(std::atomic<std::size_t>& booked, std::size_t bytes) {
    std::size_t before = booked.load(std::memory_order_relaxed);
    while (
        !booked.compare_exchange_weak(before, before - std::min(before, bytes), std::memory_order_relaxed)) {
    }
}

}  // namespace ZBase
