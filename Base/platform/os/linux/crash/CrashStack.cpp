#include <Base/platform/os/linux/crash/CrashStack.h>

#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cstddef>

namespace ZBase::os {

namespace {

constexpr std::size_t kCrashStackSize = 65536;
constexpr std::size_t kSmallestCrashStack = 16384;  // a crash takes 4 KiB and the kernel's register state

}  // namespace

bool CrashStack::Install() {
    stack_t present{};
    if (sigaltstack(nullptr, &present) != 0) return false;
    if ((present.ss_flags & SS_DISABLE) == 0 && present.ss_size >= kSmallestCrashStack) return true;
    const auto guard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t size = guard + kCrashStackSize + getauxval(AT_MINSIGSTKSZ) / guard * guard;
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return false;
    stack_t mine{};
    mine.ss_sp = static_cast<char*>(pages) + guard;
    mine.ss_size = size - guard;
    if (mprotect(pages, guard, PROT_NONE) != 0 || sigaltstack(&mine, nullptr) != 0) {
        munmap(pages, size);
        return false;
    }
    mStack = mine;
    mpPages = pages;
    return true;
}

// Only its own thread can remove it.
void CrashStack::Remove() {
    stack_t present{};
    if (mpPages == nullptr || sigaltstack(nullptr, &present) != 0 || present.ss_sp != mStack.ss_sp) return;
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    if (sigaltstack(&none, nullptr) != 0) return;
    const auto guard =
        static_cast<std::size_t>(static_cast<char*>(mStack.ss_sp) - static_cast<char*>(mpPages));
    munmap(mpPages, guard + mStack.ss_size);
}

}  // namespace ZBase::os
