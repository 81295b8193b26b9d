#include <Base/platform/os/linux/memory/OwnMemory.h>
#include <Base/platform/os/linux/stacks/OwnStack.h>
#include <Base/platform/os/linux/stacks/Registers.h>

#include <sys/auxv.h>

namespace ZBase::os {

namespace {

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kMostPages = 4096;

// The first thread's stack has no other mapping within 128 MiB below its top: the kernel leaves that gap.
// Other threads' stacks end right below their own record, to which the thread pointer points.
constexpr std::uint64_t kFirstStack = std::uint64_t{128} << 20;
constexpr std::uint64_t kThreadStack = std::uint64_t{8} << 20;

/// Readable pages of another stack; a resumed coroutine finds them again.
struct Window {
    std::uint64_t start;
    std::uint64_t end;
};
[[gnu::tls_model("initial-exec")]] thread_local constinit Window tWindow{};

std::uint64_t ThreadStackEnd(std::uint64_t stackPointer) {
    const std::uint64_t self = ThreadPointer();
    if (self - stackPointer < kThreadStack) return self;
    static constinit std::uint64_t top = 0;  // the same in every thread
    std::uint64_t first = __atomic_load_n(&top, __ATOMIC_RELAXED);
    if (first == 0) {
        first = getauxval(AT_EXECFN);  // the name of the program is above all frames
        __atomic_store_n(&top, first, __ATOMIC_RELAXED);
    }
    return first - stackPointer < kFirstStack ? first : 0;
}

bool IsPageReadable(std::uint64_t page) {
    unsigned char octet = 0;
    return CopyOwnMemory(page, &octet, 1) == 1;
}

}  // namespace

OwnStack::OwnStack(std::uint64_t stackPointer) : mStart(stackPointer), mEnd(ThreadStackEnd(stackPointer)) {
    mIsThreads = mEnd != 0;
    if (mIsThreads) return;
    const Window window = tWindow;
    mEnd = stackPointer - window.start < window.end - window.start ? window.end
                                                                   : (stackPointer | (kPage - 1)) + 1;
}

bool OwnStack::Reach(std::uint64_t end) {
    if (end <= mEnd) return true;
    if (mIsThreads || end - mEnd > kMostPages * kPage) return false;
    while (mEnd < end) {
        if (!IsPageReadable(mEnd)) return false;
        mEnd += kPage;
    }
    tWindow = {mStart & ~(kPage - 1), mEnd};
    return true;
}

bool OwnStack::Holds(std::uint64_t address) {
    if (address % 8 != 0) return false;
    if (address - mStart < mEnd - mStart) return mEnd - address >= 8;
    const std::uint64_t page = address & ~(kPage - 1);
    if (page == mPage) return true;
    if (page == 0 || !IsPageReadable(page)) return false;
    mPage = page;
    return true;
}

ZBASE_READS_STACKS bool OwnStack::Load(void* stack, std::uint64_t address, std::uint64_t& value) {
    if (!static_cast<OwnStack*>(stack)->Holds(address)) return false;
    value = *reinterpret_cast<const std::uint64_t*>(address);
    return true;
}

}  // namespace ZBase::os
