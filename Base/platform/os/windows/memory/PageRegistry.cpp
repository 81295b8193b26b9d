#include <Base/platform/os/windows/memory/PageRegistry.h>

#include <windows.h>

#include <new>
#include <utility>

namespace ZBase::os {

namespace {

HANDLE PrivateHeap() {
    static const HANDLE heap = HeapCreate(0, 0, 0);
    return heap;
}

class Lock {
public:
    explicit Lock(void*& lock) : mLock(reinterpret_cast<SRWLOCK&>(lock)) { AcquireSRWLockExclusive(&mLock); }
    ~Lock() { ReleaseSRWLockExclusive(&mLock); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    SRWLOCK& mLock;
};
static_assert(sizeof(SRWLOCK) == sizeof(void*));

}  // namespace

void* AllocateFromPrivateHeap(std::size_t octets) {
    void* const block = PrivateHeap() == nullptr ? nullptr : HeapAlloc(PrivateHeap(), 0, octets);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void FreeFromPrivateHeap(void* block) noexcept {
    HeapFree(PrivateHeap(), 0, block);
}

bool PageRegistry::Add(std::uintptr_t start, std::uintptr_t end) noexcept {
    const Lock lock(mLock);
    try {
        mEntries.emplace(start, end);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

PageRegistry::Entry PageRegistry::Take(std::uintptr_t start) noexcept {
    const Lock lock(mLock);
    return mEntries.extract(start);
}

void PageRegistry::Restore(Entry entry) noexcept {
    const Lock lock(mLock);
    mEntries.insert(std::move(entry));
}

bool PageRegistry::Find(std::uintptr_t address, std::uintptr_t& start, std::uintptr_t& end) noexcept {
    const Lock lock(mLock);
    auto entry = mEntries.upper_bound(address);
    if (entry == mEntries.begin() || address >= (--entry)->second) return false;
    start = entry->first;
    end = entry->second;
    return true;
}

PageRegistry& PageRegistry::OfProcess() {
    alignas(PageRegistry) static std::byte place[sizeof(PageRegistry)];
    static PageRegistry& registry = *new (place) PageRegistry;
    return registry;
}

}  // namespace ZBase::os
