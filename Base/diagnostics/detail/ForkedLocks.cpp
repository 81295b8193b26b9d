// A fork copies locks in their state, but only the forking thread. So that thread takes them all first. Its
// wait is bounded: a heap's own fork hook may have run before and hold the heap's lock, while a thread inside
// diagnostics waits for that. Then the child makes the locks anew. The data under them is consistent all the
// same, since all that may wait for the heap is done before anything is changed.

#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/diagnostics/detail/ForkedLocks.h>
#include <Base/platform/os/processes/Forks.h>
#include <Base/platform/os/processes/Patience.h>
#include <Base/platform/os/processes/Threads.h>
#include <Base/platform/os/stacks/ThreadContext.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>

namespace ZBase::detail {

namespace {

using Word = std::atomic<std::int32_t>;

struct alignas(64) Slot {
    std::atomic<Word*> lock{nullptr};
};
constinit std::array<Slot, 64> sSlots{};
constinit std::atomic<int> sForks{0};
std::mutex sModuleEnumeration;

}  // namespace

/// The locks of the forking thread. Two threads may fork at once.
struct HeldAtFork {
    bool tracer;
    bool callStack;
    bool modules;

    void Take() {
        os::Patience patience;
        tracer = patience.Until([] { return gTracerLock.Mutex().try_lock(); });
        callStack = patience.Until([] { return gCallStackLock.Mutex().try_lock(); });
        modules = patience.Until([] { return sModuleEnumeration.try_lock(); });
        os::HoldThreadStops();
        ++sForks;
        patience.Until([] {
            return std::all_of(sSlots.begin(), sSlots.end(),
                               [](const Slot& slot) { return slot.lock.load() == nullptr; });
        });
    }

    void Release() {
        --sForks;
        os::ReleaseThreadStops();
        if (modules) sModuleEnumeration.unlock();
        if (callStack) gCallStackLock.Mutex().unlock();
        if (tracer) gTracerLock.Mutex().unlock();
    }

    static void Renew() {
        for (Slot& slot : sSlots) {
            if (Word* const word = slot.lock.exchange(nullptr)) word->store(0);
        }
        sForks = 0;
        os::ForgetThreadStops();
        ::new (static_cast<void*>(&sModuleEnumeration)) std::mutex;
        // Their owner is recorded as the parent's thread, so they can't be released.
        ::new (static_cast<void*>(&gCallStackLock.Mutex())) std::recursive_mutex;
        ::new (static_cast<void*>(&gTracerLock.Mutex())) std::recursive_mutex;
    }
};

namespace {

[[gnu::tls_model("initial-exec")]] thread_local constinit HeldAtFork tHeld{};  // no heap at a fork

}  // namespace

bool KeepLocksSoundInChildren() {
    return os::CallAtFork([] { tHeld.Take(); }, [] { tHeld.Release(); }, [] { HeldAtFork::Renew(); });
}

std::mutex& ModuleEnumeration() {
    return sModuleEnumeration;
}

static std::atomic<Word*>& Claim(Word& lock) {
    const unsigned long first = os::RememberedThreadId();
    for (;;) {
        for (unsigned long i = 0; i != sSlots.size(); ++i) {
            std::atomic<Word*>& slot = sSlots[(first + i) % sSlots.size()].lock;
            Word* none = nullptr;
            if (!slot.compare_exchange_strong(none, &lock)) continue;
            if (sForks.load() == 0) return slot;
            slot.store(nullptr);
            break;
        }
        os::YieldThread();
    }
}

ForkGate::ForkGate(Word& lock) : mSlot(Claim(lock)) {}

}  // namespace ZBase::detail
