#include <Base/memory/detail/Gate.h>

#include <Base/platform/os/processes/Forks.h>

namespace ZBase {

namespace {

constinit std::atomic<std::uint32_t> sForks{0};
constinit std::atomic<bool> sForksCounted{false};

void Nothing() {}

}  // namespace

std::uint64_t Gate::ThisProcess() {
    // Two registrations do no harm: a counter that rises by two still differs.
    if (!sForksCounted.load(std::memory_order_relaxed) && os::CallAtFork(Nothing, Nothing, [] { ++sForks; }))
        sForksCounted.store(true, std::memory_order_relaxed);
    return std::uint64_t{sForks.load(std::memory_order_relaxed)} << 32;
}

}  // namespace ZBase
