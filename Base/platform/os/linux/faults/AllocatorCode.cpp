// The allocator is recognised by its entry points: the function of a frame is one of them, or the frame is
// within the range of the C library's ones, whose allocator is contiguous, or in the module that replaces it.

#include <Base/platform/os/faults/Callers.h>
#include <Base/platform/os/linux/faults/AllocatorCode.h>
#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>

#include <dlfcn.h>
#include <sys/auxv.h>
#include <algorithm>
#include <cstdint>
#include <iterator>

namespace ZBase::os {

namespace {

constexpr unsigned int kFramesToSearch = 16;  // the calls below an allocator entry are not deep
constexpr unsigned int kCallersToSearch = 256;

constexpr const char* kEntries[] = {"malloc",          "free",
                                    "calloc",          "realloc",
                                    "memalign",        "aligned_alloc",
                                    "posix_memalign",  "malloc_trim",
                                    "mallopt",         "malloc_info",
                                    "__libc_malloc",   "__libc_free",
                                    "__libc_calloc",   "__libc_realloc",
                                    "__libc_memalign", "_Znwm",  // the operators of C++ come last
                                    "_Znam",           "_ZnwmSt11align_val_t",
                                    "_ZdlPv",          "_ZdaPv",
                                    "_ZdlPvm",         "_ZdlPvSt11align_val_t"};

constexpr std::size_t kOperators = 8;

struct Range {
    std::uint64_t start = 0;
    std::uint64_t end = 0;

    bool Holds(std::uint64_t address) const { return address >= start && address < end; }
    void Reach(std::uint64_t address) {
        start = start == 0 ? address : std::min(start, address);
        end = std::max(end, address + 1);
    }
};

std::uint64_t sEntries[std::size(kEntries)];
Range sSystem;       // the allocator of the C library
Range sReplacement;  // the module of another one

std::uint64_t AddressOf(const char* function) {
    return reinterpret_cast<std::uint64_t>(dlsym(RTLD_DEFAULT, function));
}

FrameWalker WalkerAt(const ucontext_t& context) {
    GeneralRegisters state{};
    StoreRegisters(context, state);
    return FrameWalker(state, {LoadForeignWord, nullptr}, nullptr);
}

// Whether one of the innermost frames is in the allocator; uses the first `entries` entries.
bool IsInAllocator(FrameWalker& walker, unsigned int frames, std::size_t entries) {
    for (unsigned int i = 0; i != frames; ++i) {
        const std::uint64_t address = walker.Address();
        if (sSystem.Holds(address) || sReplacement.Holds(address)) return true;
        const std::uint64_t function = walker.FunctionStart();
        const std::uint64_t* const end = sEntries + entries;
        if (function != 0 && std::find<const std::uint64_t*>(sEntries, end, function) != end) return true;
        if (!walker.Step()) return false;
    }
    return false;
}

}  // namespace

void FindAllocatorCode() {
    UnwindModule system{};
    UnwindModule own{};
    const bool hasSystem = FindUnwindModule(AddressOf("gnu_get_libc_version"), system);
    const std::uint64_t program = getauxval(AT_ENTRY);
    for (std::size_t i = 0; i != std::size(kEntries); ++i) {
        const std::uint64_t entry = AddressOf(kEntries[i]);
        sEntries[i] = entry;
        if (hasSystem && entry >= system.start && entry < system.end) sSystem.Reach(entry);
    }
    if (!hasSystem || !FindUnwindModule(AddressOf("malloc"), own) || own.start == system.start) return;
    // In the program itself the allocator is only a part.
    if (program < own.start || program >= own.end) sReplacement = {own.start, own.end};
}

bool StandsInAllocator(const ucontext_t& context) {
    FrameWalker walker = WalkerAt(context);
    return IsInAllocator(walker, kFramesToSearch, std::size(kEntries));
}

bool MayHoldAllocator() {
    ucontext_t context{};
    if (getcontext(&context) != 0) return true;
    FrameWalker walker = WalkerAt(context);
    return IsInAllocator(walker, kCallersToSearch, std::size(kEntries) - kOperators);
}

bool IsCalledFrom(const void* function) {
    ucontext_t context{};
    if (getcontext(&context) != 0) return false;
    FrameWalker walker = WalkerAt(context);
    for (unsigned int i = 0; i != kFramesToSearch; ++i) {
        if (walker.FunctionStart() == reinterpret_cast<std::uint64_t>(function)) return true;
        if (!walker.Step()) return false;
    }
    return false;
}

void PrepareCallers() {
    FindAllocatorCode();
}

}  // namespace ZBase::os
