#include <Base/platform/os/linux/processes/ForkLock.h>

#include <linux/futex.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <new>

namespace ZBase::os {

namespace {

enum : std::uint32_t { kFree, kHeld, kWanted };

// Locks in pages that the kernel does not zero in a child.
constinit std::atomic<ForkLock*> sRenewed{nullptr};

void Futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value) noexcept {
    static_assert(sizeof word == sizeof(std::uint32_t));
    const int before = errno;
    syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
    errno = before;
}

}  // namespace

void ForkLock::RenewAll() noexcept {
    for (ForkLock* lock = sRenewed; lock != nullptr; lock = lock->mpNext) lock->FindWord().store(kFree);
}

ForkLock::Word& ForkLock::FindWord() noexcept {
    Word* word = mpWord.load(std::memory_order_acquire);
    if (word != nullptr) return *word;
    const auto size = static_cast<std::size_t>(getpagesize());
    void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Word* const fresh = page == MAP_FAILED ? &mOwnWord : ::new (page) Word(kFree);
    const bool renews = page == MAP_FAILED || madvise(page, size, MADV_WIPEONFORK) != 0;
    if (!mpWord.compare_exchange_strong(word, fresh)) {
        if (page != MAP_FAILED) munmap(page, size);  // another thread was first
        return *word;
    }
    if (renews) {
        ForkLock* head = sRenewed.load();
        do mpNext = head;
        while (!sRenewed.compare_exchange_weak(head, this));
        if (head == nullptr) pthread_atfork(nullptr, nullptr, RenewAll);
    }
    return *fresh;
}

void ForkLock::lock() noexcept {
    Word& word = FindWord();
    std::uint32_t state = kFree;
    if (word.compare_exchange_strong(state, kHeld, std::memory_order_acquire)) return;
    while (word.exchange(kWanted, std::memory_order_acquire) != kFree) Futex(word, FUTEX_WAIT, kWanted);
}

void ForkLock::unlock() noexcept {
    Word& word = FindWord();
    if (word.exchange(kFree, std::memory_order_release) == kWanted) Futex(word, FUTEX_WAKE, 1);
}

}  // namespace ZBase::os
