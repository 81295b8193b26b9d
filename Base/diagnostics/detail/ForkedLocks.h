#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace ZBase::detail {

/// Makes a fork wait until no thread is inside diagnostics, for a bounded time: such a thread may wait for a
/// lock of the heap that the forking thread already holds. In the child all locks of diagnostics are free.
/// For `Load.cpp`.
bool KeepLocksSoundInChildren();

/// Held around a lock in a caller's object, which the fork handlers can't reach. Held shortly, by one thread
/// at a time.
class ForkGate {
public:
    explicit ForkGate(std::atomic<std::int32_t>& lock);
    ~ForkGate() { mSlot.store(nullptr, std::memory_order_release); }
    ForkGate(const ForkGate&) = delete;
    ForkGate& operator=(const ForkGate&) = delete;

private:
    std::atomic<std::atomic<std::int32_t>*>& mSlot;
};

/// Held while a `ModuleInfo` is filled, under its own lock.
std::mutex& ModuleEnumeration();

}  // namespace ZBase::detail
