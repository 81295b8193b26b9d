#include <Base/platform/os/linux/memory/PageRegistry.h>

#include <sys/mman.h>
#include <bit>
#include <new>

namespace ZBase::os {

namespace {

constexpr std::size_t kRoom = 1 << 16;  // octets of the pages for entries

}  // namespace

bool PageRegistry::Add(std::uintptr_t start, std::uintptr_t end) noexcept {
    const std::lock_guard lock(mLock);
    Entry* const entry = NewEntry();
    if (entry == nullptr) return false;
    entry->start = start;
    entry->end = end;
    Insert(entry);
    return true;
}

PageRegistry::Entry* PageRegistry::Take(std::uintptr_t start) noexcept {
    const std::lock_guard lock(mLock);
    Path path;
    Entry* const entry = Before(start, path)->next[0];
    if (entry == nullptr || entry->start != start) return nullptr;
    for (std::size_t level = kLevels; level-- != 0;) {
        std::atomic<Entry*>& link = path[level]->next[level];
        if (link == entry) link = entry->next[level].load();
    }
    return entry;
}

void PageRegistry::Drop(Entry* entry) noexcept {
    const std::lock_guard lock(mLock);
    entry->next[0] = mpUnused.load();
    mpUnused = entry;
}

void PageRegistry::Restore(Entry* entry) noexcept {
    const std::lock_guard lock(mLock);
    Insert(entry);
}

bool PageRegistry::Find(std::uintptr_t address, std::uintptr_t& start, std::uintptr_t& end) noexcept {
    const std::lock_guard lock(mLock);
    Path path;
    const Entry* const entry = Before(address + 1, path);  // no allocation begins at the last address
    if (entry == &mHead) return false;
    start = entry->start;
    end = entry->end;
    return address < end;
}

PageRegistry::Entry* PageRegistry::NewEntry() noexcept {
    if (mpUnused == nullptr) {
        void* const room = mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (room == MAP_FAILED) return nullptr;
        auto* const entries = static_cast<Entry*>(room);
        for (std::size_t i = kRoom / sizeof(Entry); i-- != 0;) {
            Entry* const entry = ::new (static_cast<void*>(entries + i)) Entry{};
            entry->next[0] = mpUnused.load();
            mpUnused = entry;
        }
    }
    Entry* const entry = mpUnused;
    mpUnused = entry->next[0].load();
    return entry;
}

void PageRegistry::Insert(Entry* entry) noexcept {
    Path path;
    Before(entry->start, path);
    const std::size_t height = NextHeight();
    for (std::size_t level = 0; level != height; ++level) {
        entry->next[level] = path[level]->next[level].load();
        path[level]->next[level] = entry;
    }
}

// The last entry before `start` at the lowest level; `path` gets that of every level.
PageRegistry::Entry* PageRegistry::Before(std::uintptr_t start, Path& path) noexcept {
    Entry* entry = &mHead;
    for (std::size_t level = kLevels; level-- != 0;) {
        for (Entry* next = nullptr; (next = entry->next[level]) != nullptr && next->start < start;)
            entry = next;
        path[level] = entry;
    }
    return entry;
}

std::size_t PageRegistry::NextHeight() noexcept {
    mRandom ^= mRandom << 13;
    mRandom ^= mRandom >> 17;
    mRandom ^= mRandom << 5;
    const auto zeroes = static_cast<std::size_t>(std::countr_zero(mRandom));
    return zeroes / 2 < kLevels ? zeroes / 2 + 1 : kLevels;
}

}  // namespace ZBase::os
