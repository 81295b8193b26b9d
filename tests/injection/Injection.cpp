#include "tests/injection/Injection.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "tests/injection/Interposed.h"

extern "C" [[gnu::weak]] volatile bool gIsKeepingCounters;  // of tests/modules/CountedProcess.cpp

namespace test {

namespace {

constexpr std::size_t kNever = static_cast<std::size_t>(-1);
constexpr int kFrames = std::extent_v<decltype(Failure::frames)>;

struct State {
    bool isArmed = false;
    EFailing failing = EFailing::eHeap;
    std::size_t left = kNever;  // calls before the one that fails
    Failure failure;            // the first of them
    Failure* witness = nullptr;
    pid_t process = 0;      // that prepared it
    long mappingsLeft = 0;  // as they could not be given back
    long blocksLeft = 0;    // as they could not be made writable
};

thread_local State tState;
std::atomic<long> sBlocks = 0;
std::atomic<long> sMappings = 0;

// Looks up its library at first use, which must not be in the midst of a failure.
const int kWarm = [] {
    void* frames[2];
    return backtrace(frames, 2);
}();

bool IsForGood(EFailing failing) noexcept {
    return failing == EFailing::eHeapForGood || failing == EFailing::eSystemForGood;
}

bool IsTurn(EFailing failing, EFailing forGood, const char* name) noexcept {
    State& state = tState;
    if (&gIsKeepingCounters != nullptr && gIsKeepingCounters) return false;
    if (!state.isArmed || (state.failing != failing && state.failing != forGood) || state.left == kNever)
        return false;
    if (state.left != 0) {
        --state.left;
        return false;
    }
    if (!IsForGood(state.failing)) state.left = kNever;
    if (state.failure.name != nullptr) return true;
    // A process that another made for its dump may have had its number before.
    const bool wasElsewhere = state.witness != nullptr && state.witness->name != nullptr;
    if (wasElsewhere && !IsForGood(state.failing)) return false;
    state.failure.name = name;
    // The stack of a process that another made for its dump has no room for more.
    if (getpid() == state.process) {
        state.isArmed = false;
        state.failure.frameCount = backtrace(state.failure.frames, kFrames);
        state.isArmed = true;
    } else {
        void** frame = static_cast<void**>(__builtin_frame_address(0));  // this program has frame pointers
        for (int& count = state.failure.frameCount; count != 3; frame = static_cast<void**>(*frame))
            state.failure.frames[count++] = frame[1];
    }
    if (state.witness != nullptr && !wasElsewhere) *state.witness = state.failure;
    return true;
}

std::vector<std::string_view>& Names() {
    static std::vector<std::string_view> sNames;
    return sNames;
}

}  // namespace

const char* NameOf(EFailing failing) {
    constexpr const char* kNames[] = {"heap",           "system",        "interruption",
                                      "short transfer", "heap for good", "system for good"};
    return kNames[static_cast<int>(failing)];
}

void PrepareFailure(EFailing failing, std::size_t index, Failure* witness) {
    tState = {};
    tState.witness = witness;
    tState.process = getpid();
    tState.failing = failing;
    tState.left = index;
}

bool HasFailed() {
    return tState.failure.name != nullptr;
}

bool MayFail() {
    return tState.left != kNever;
}

std::string DescribeFailure() {
    return Describe(tState.failure);
}

std::string Describe(const Failure& failure) {
    if (failure.name == nullptr) return "no failure";
    std::string text = failure.name;
    for (int i = 2; i < failure.frameCount; ++i) {
        Dl_info module{};
        if (dladdr(failure.frames[i], &module) == 0) continue;
        const auto offset = static_cast<char*>(failure.frames[i]) - static_cast<char*>(module.dli_fbase);
        char line[512];
        std::snprintf(line, sizeof line, "\n    %s+0x%lx %s", module.dli_fname, static_cast<long>(offset),
                      module.dli_sname == nullptr ? "" : module.dli_sname);
        text += line;
    }
    return text;
}

Armed::Armed() {
    tState.isArmed = true;
}

Armed::~Armed() {
    tState.isArmed = false;
}

Holdings PresentHoldings() {
    Holdings holdings{sBlocks, sMappings, 0};
    // Who can't give pages back has them, whatever he does.
    holdings.mappings -= tState.mappingsLeft;
    holdings.blocks -= tState.blocksLeft;
    for (int descriptor = 0; descriptor != 256; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0) ++holdings.descriptors;
    }
    return holdings;
}

const std::vector<std::string_view>& InterposedNames() {
    std::sort(Names().begin(), Names().end());
    return Names();
}

Interposition::Interposition(const char* name) {
    Names().emplace_back(name);
}

bool Fails(const char* name, int error, bool isInterruptible) noexcept {
    const bool isFailing = error != 0 && IsTurn(EFailing::eSystem, EFailing::eSystemForGood, name);
    if (!isFailing && !(isInterruptible && IsTurn(EFailing::eInterrupted, EFailing::eInterrupted, name)))
        return false;
    if (std::strcmp(name, "munmap") == 0) ++tState.mappingsLeft;
    if (std::strcmp(name, "mprotect") == 0) ++tState.blocksLeft;
    errno = isFailing ? error : EINTR;
    return true;
}

bool IsShort(const char* name) noexcept {
    return IsTurn(EFailing::eShort, EFailing::eShort, name);
}

void EndShortage() noexcept {
    if (tState.failing == EFailing::eHeapForGood) tState.left = kNever;
}

void CountMappings(int more) noexcept {
    sMappings += more;
}

}  // namespace test

// The heap. What is counted is what the program holds, whoever asked for it.

namespace {

bool Refuses(const char* name) {
    if (!test::IsTurn(test::EFailing::eHeap, test::EFailing::eHeapForGood, name)) return false;
    errno = ENOMEM;
    return true;
}

void* Counted(void* block) {
    if (block != nullptr) test::sBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

}  // namespace

ZBASE_INTERPOSED(void*, malloc, (std::size_t size)) {
    return Refuses("malloc") ? nullptr : Counted(Real_malloc()(size));
}

ZBASE_INTERPOSED(void*, calloc, (std::size_t count, std::size_t size)) {
    return Refuses("calloc") ? nullptr : Counted(Real_calloc()(count, size));
}

ZBASE_INTERPOSED(void*, realloc, (void* block, std::size_t size)) {
    if (Refuses("realloc")) return nullptr;
    void* const moved = Real_realloc()(block, size);
    if (block == nullptr) return Counted(moved);
    if (moved == nullptr && size == 0) test::sBlocks.fetch_sub(1, std::memory_order_relaxed);
    return moved;
}

ZBASE_INTERPOSED(int, posix_memalign, (void** block, std::size_t alignment, std::size_t size)) {
    if (Refuses("posix_memalign")) return ENOMEM;
    const int failed = Real_posix_memalign()(block, alignment, size);
    if (failed == 0) Counted(*block);
    return failed;
}

ZBASE_INTERPOSED(void*, aligned_alloc, (std::size_t alignment, std::size_t size)) {
    return Refuses("aligned_alloc") ? nullptr : Counted(Real_aligned_alloc()(alignment, size));
}

ZBASE_INTERPOSED(void*, memalign, (std::size_t alignment, std::size_t size)) {
    return Refuses("memalign") ? nullptr : Counted(Real_memalign()(alignment, size));
}

ZBASE_INTERPOSED(void, free, (void* block)) {
    if (block != nullptr) test::sBlocks.fetch_sub(1, std::memory_order_relaxed);
    Real_free()(block);
}
