#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/memory/PageRegistry.h>
#include <Base/platform/os/memory/Pages.h>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

namespace ZBase::os {

namespace {

bool Fail(unsigned int code) {
    SetLastCode(code);
    return false;
}

bool Check(bool succeeded) {
    if (!succeeded) SetLastCodeFromErrno();
    return succeeded;
}

// A range of addresses.
struct Range {
    std::uintptr_t start;
    std::uintptr_t end;

    void* Address() const { return reinterpret_cast<void*>(start); }
    std::size_t Size() const { return end - start; }
};

// The allocations of `AllocatePages` that were not freed.
constinit PageRegistry sAllocations;

std::uintptr_t RoundDown(std::uintptr_t address) {
    return address & ~(PageSize() - 1);
}

std::uintptr_t RoundUp(std::uintptr_t address) {
    return RoundDown(address + PageSize() - 1);
}

// The pages that a change of protection of this range applies to; false if it exceeds its allocation.
bool PagesToProtect(void* address, std::size_t size, Range& pages) {
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    constexpr std::uintptr_t last = std::numeric_limits<std::uintptr_t>::max();
    if (size > last - PageSize() || start > last - PageSize() - size) return false;
    Range allocation{};
    if (sAllocations.Find(start, allocation.start, allocation.end)) {
        pages = {RoundDown(start), RoundUp(start + size)};
        return pages.end <= allocation.end;
    }
    pages = {RoundUp(start), RoundDown(start + size)};
    return true;
}

bool SetProtection(void* address, std::size_t size, int protection) {
    if (size == 0) return true;
    Range pages{};
    if (!PagesToProtect(address, size, pages)) return Fail(kInvalidAddress);
    return pages.end <= pages.start || Check(mprotect(pages.Address(), pages.Size(), protection) == 0);
}

}  // namespace

std::size_t PageSize() {
    // No guarded static, whose guard a forked child could find locked: two first calls read twice, with the
    // same result.
    static constinit std::atomic<std::size_t> sSize{0};
    if (sSize == 0) sSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return sSize;
}

void* AllocatePages(std::size_t size) {
    if (size == 0 || size > std::numeric_limits<std::size_t>::max() - PageSize()) {
        Fail(size == 0 ? kInvalidParameter : kNotEnoughMemory);
        return nullptr;
    }
    const std::size_t whole = RoundUp(size);
    void* address = mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (!Check(address != MAP_FAILED)) return nullptr;
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    if (sAllocations.Add(start, start + whole)) return address;
    munmap(address, whole);
    Fail(kNotEnoughMemory);
    return nullptr;
}

bool ReleasePages(void* address) {
    // Removed before munmap: after it another thread may get the addresses.
    PageRegistry::Entry* const entry = sAllocations.Take(reinterpret_cast<std::uintptr_t>(address));
    if (entry == nullptr) return Fail(kInvalidAddress);
    if (Check(munmap(address, entry->end - entry->start) == 0)) {
        sAllocations.Drop(entry);
        return true;
    }
    sAllocations.Restore(entry);
    return false;
}

bool ProtectPages(void* address, std::size_t size) {
    return SetProtection(address, size, PROT_READ);
}

bool UnprotectPages(void* address, std::size_t size) {
    return SetProtection(address, size, PROT_READ | PROT_WRITE);
}

bool DecommitPages(void* address, std::size_t size) {
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    Range allocation{};
    if (!sAllocations.Find(start, allocation.start, allocation.end) || size > allocation.end - start)
        return Fail(kInvalidAddress);
    // A size of 0 with the start means the whole allocation.
    if (size == 0 && start != allocation.start) return Fail(kInvalidParameter);
    const Range pages{RoundDown(start), size == 0 ? allocation.end : RoundUp(start + size)};
    // A new mapping over the old one: its memory is freed, and no other thread can get the addresses.
    return Check(mmap(pages.Address(), pages.Size(), PROT_NONE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0) != MAP_FAILED);
}

void ClearMemory(void* address, std::size_t size) {
    // Below this size writing is faster than a system call.
    constexpr std::size_t large = 0x10000;
    if (size >= large) {
        const auto start = reinterpret_cast<std::uintptr_t>(address);
        const Range pages{RoundUp(start), RoundDown(start + size)};
        auto* const first = static_cast<volatile char*>(pages.Address());
        *first = 1;
        const int error = errno;
        const bool given = madvise(pages.Address(), pages.Size(), MADV_DONTNEED) == 0;
        errno = error;
        // Pages that are locked stay, and those that are shared, or of a file, keep or get back what it has.
        if (given && *first == 0) {
            std::memset(reinterpret_cast<void*>(pages.end), 0, start + size - pages.end);
            size = pages.start - start;
        }
    }
    std::memset(address, 0, size);
}

}  // namespace ZBase::os
