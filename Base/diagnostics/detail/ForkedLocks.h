#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace ZBase::detail {

/// Makes a fork wait until no thread is inside of diagnostics, but not for long: whoever is there may wait
/// for a lock of the heap that the forking thread holds already. In the child all locks of diagnostics are
/// free. For `Load.cpp`.
bool KeepLocksSoundInChildren();

/// Held around a lock that lies in an object of a caller, where no child would find it: whose holders are
/// known here. Short, and one of a thread at a time.
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
