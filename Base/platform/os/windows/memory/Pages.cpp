#include <Base/platform/os/memory/Pages.h>
#include <Base/platform/os/windows/memory/PageRegistry.h>

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <limits>

namespace ZBase::os {

namespace {

bool Fail(DWORD code) {
    SetLastError(code);
    return false;
}

// A run of addresses.
struct Range {
    std::uintptr_t start;
    std::uintptr_t end;

    void* Address() const { return reinterpret_cast<void*>(start); }
    std::size_t Size() const { return end - start; }
};

std::uintptr_t RoundDown(std::uintptr_t address) {
    return address & ~(PageSize() - 1);
}

std::uintptr_t RoundUp(std::uintptr_t address) {
    return RoundDown(address + PageSize() - 1);
}

bool FindAllocation(std::uintptr_t address, Range& allocation) {
    return PageRegistry::OfProcess().Find(address, allocation.start, allocation.end);
}

// The pages that a change of protection of this range falls on; false if it leaves its allocation.
bool PagesToProtect(void* address, std::size_t size, Range& pages) {
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    constexpr std::uintptr_t last = std::numeric_limits<std::uintptr_t>::max();
    if (size > last - PageSize() || start > last - PageSize() - size) return false;
    Range allocation{};
    if (FindAllocation(start, allocation)) {
        pages = {RoundDown(start), RoundUp(start + size)};
        return pages.end <= allocation.end;
    }
    pages = {RoundUp(start), RoundDown(start + size)};
    return true;
}

// One call reaches no further than one reservation, of which foreign memory may have several.
bool ProtectRegions(const Range& pages, DWORD protection) {
    for (std::uintptr_t at = pages.start; at < pages.end;) {
        MEMORY_BASIC_INFORMATION region{};
        DWORD before = 0;
        if (VirtualQuery(reinterpret_cast<void*>(at), &region, sizeof region) == 0) return false;
        const std::uintptr_t regionEnd =
            reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize;
        const std::uintptr_t end = regionEnd < pages.end ? regionEnd : pages.end;
        if (VirtualProtect(reinterpret_cast<void*>(at), end - at, protection, &before) == 0) return false;
        at = end;
    }
    return true;
}

bool SetProtection(void* address, std::size_t size, DWORD protection) {
    if (size == 0) return true;
    Range pages{};
    if (!PagesToProtect(address, size, pages)) return Fail(ERROR_INVALID_ADDRESS);
    return pages.end <= pages.start || ProtectRegions(pages, protection);
}

}  // namespace

std::size_t PageSize() {
    static const std::size_t size = [] {
        SYSTEM_INFO facts{};
        GetSystemInfo(&facts);
        return static_cast<std::size_t>(facts.dwPageSize);
    }();
    return size;
}

void* AllocatePages(std::size_t size) {
    if (size == 0 || size > std::numeric_limits<std::size_t>::max() - PageSize()) {
        Fail(size == 0 ? ERROR_INVALID_PARAMETER : ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    void* const address = VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (address == nullptr) {
        // To the system a size beyond all addresses is a bad argument.
        if (GetLastError() == ERROR_INVALID_PARAMETER) Fail(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    if (PageRegistry::OfProcess().Add(start, start + RoundUp(size))) return address;
    VirtualFree(address, 0, MEM_RELEASE);
    Fail(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

bool ReleasePages(void* address) {
    // Taken out first: once the system has the addresses, another thread may be given them.
    PageRegistry& registry = PageRegistry::OfProcess();
    PageRegistry::Entry entry = registry.Take(reinterpret_cast<std::uintptr_t>(address));
    if (entry.empty()) return Fail(ERROR_INVALID_ADDRESS);
    if (VirtualFree(address, 0, MEM_RELEASE) != 0) return true;
    const DWORD code = GetLastError();
    registry.Restore(std::move(entry));
    return Fail(code);
}

bool ProtectPages(void* address, std::size_t size) {
    return SetProtection(address, size, PAGE_READONLY);
}

bool UnprotectPages(void* address, std::size_t size) {
    return SetProtection(address, size, PAGE_READWRITE);
}

// The system itself would drop pages of anybody.
bool DecommitPages(void* address, std::size_t size) {
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    Range allocation{};
    if (!FindAllocation(start, allocation) || size > allocation.end - start)
        return Fail(ERROR_INVALID_ADDRESS);
    // The whole allocation is meant by its start and a size of 0.
    if (size == 0 && start != allocation.start) return Fail(ERROR_INVALID_PARAMETER);
    const Range pages{RoundDown(start), size == 0 ? allocation.end : RoundUp(start + size)};
    return VirtualFree(pages.Address(), pages.Size(), MEM_DECOMMIT) != 0;
}

// To drop the pages and take new ones is no way: where the system has none left, the range would be gone. The
// zeroed pages leave the working set, and are the first to be written out.
void ClearMemory(void* address, std::size_t size) {
    constexpr std::size_t small = 0x400, large = 0x10000;
    // A C library may have a plain loop for what fits a cache: the processor's own is three times as fast
    // there.
    if (size >= small && size < large)
        __stosb(static_cast<unsigned char*>(address), 0, size);
    else
        std::memset(address, 0, size);
    if (size < large) return;
    const DWORD code = GetLastError();
    VirtualUnlock(address, size);  // what was not locked leaves, although the call fails
    SetLastError(code);
}

}  // namespace ZBase::os
