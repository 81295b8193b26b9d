#include <Base/platform/PseudoRandom.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

namespace ZBase {

namespace {

constexpr unsigned int kRandomBits = 15;

// Two first calls at once may both seed, which is harmless.
std::atomic<bool> sSeeded{false};

unsigned int TimeSeed() {
    using namespace std::chrono;
    const auto now = system_clock::now().time_since_epoch();
    const auto whole = duration_cast<seconds>(now);
    return static_cast<unsigned int>(whole.count() + duration_cast<milliseconds>(now - whole).count());
}

// The upper 15 bits of the C library's number.
unsigned int RandomBits() {
    constexpr unsigned int range = static_cast<unsigned int>(RAND_MAX) + 1;
    return static_cast<unsigned int>(std::rand()) / (range >> kRandomBits);
}

}  // namespace

unsigned int GetPseudoRandomInt32(unsigned int upperBound) {
    if (!sSeeded.load(std::memory_order_relaxed)) {
        std::srand(TimeSeed());
        sSeeded.store(true, std::memory_order_relaxed);
    }
    const double fraction = RandomBits() * (1.0 / (1u << kRandomBits));
    return static_cast<unsigned int>(fraction * upperBound) + 1;
}

}  // namespace ZBase
