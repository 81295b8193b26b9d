#pragma once

// The chunks of a lock-free buffer, and how its threads share them.
//
// Each chunk has a slot: where it starts and ends, and `current`, its next free byte. A thread takes a piece
// by moving `current` with a compare-and-swap; that is the one locked operation of an ordinary allocation.
// Slots are numbered. An index is claimed by counting up, once for each chunk, and the slot is published by
// the store of its `current`; until then it reads as empty, and everybody passes it by. Nothing is ever taken
// out, so a slot that was found stays where it is.
//
// Several threads that find no room each bring a chunk, so more than one slot may have some. A search starts
// at the active slot and goes on through all later ones. To keep it short the active slot is left behind
// while it still has some room: the more slots are open behind it, the more room it may take with it. With
// more than twelve it goes whatever it has. Wasted tails are the price of looking at a dozen slots at most.
//
// Slots lie in pages of sixteen, the first of which is part of the buffer. Each page knows the one before it,
// and the newest one is found through the table: pages are only ever added at that end, by a
// compare-and-swap whose loser takes the winner's page.

#include <Base/memory/detail/BufferBase.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ZBase {

class Slot {
public:
    bool IsPublished() const { return mCurrent.load(std::memory_order_acquire) != nullptr; }

    // Of a published slot: its chunk, and the bytes taken so far.
    Chunk GetChunk() const { return {mStart, mEnd}; }
    std::size_t Used() const {
        return static_cast<std::size_t>(mCurrent.load(std::memory_order_acquire) - mStart);
    }

    // Whether a published slot has at most `size` bytes of room.
    bool HasAtMost(std::size_t size) const {
        const char* const current = mCurrent.load(std::memory_order_acquire);
        return current != nullptr && Room(current) <= size;
    }

    bool HasRoom(std::size_t size) const {
        const char* const current = mCurrent.load(std::memory_order_acquire);
        return current != nullptr && Room(current) >= size;
    }

    // A piece of the chunk, or null if it has no room.
    char* Take(std::size_t size) {
        char* current = mCurrent.load(std::memory_order_acquire);
        if (current == nullptr) return nullptr;
        // Read once: the line is being fought for.
        const char* const end = mEnd;
        while (static_cast<std::size_t>(end - current) >= size)
            if (mCurrent.compare_exchange_weak(current, current + size, std::memory_order_relaxed))
                return current;
        return nullptr;
    }

    // Makes the chunk known to all threads, its first `used` bytes taken.
    void Publish(const Chunk& chunk, std::size_t used) {
        mStart = chunk.start;
        mEnd = chunk.end;
        mCurrent.store(chunk.start + used, std::memory_order_release);
    }

private:
    std::size_t Room(const char* current) const { return static_cast<std::size_t>(mEnd - current); }

    // Written once, before `mCurrent`; nobody looks at them earlier, so a new page need not clear them.
    char* mStart;
    char* mEnd;
    std::atomic<char*> mCurrent{nullptr};  // null: empty or not yet published
};

struct SlotPage {
    static constexpr std::uint32_t kSlots = 16;

    Slot slots[kSlots];
    SlotPage* previous = nullptr;  // the page before this one; null on the first
    std::uint32_t firstIndex = 0;
    std::uint32_t endIndex = kSlots;

    bool Has(std::uint32_t index) const { return firstIndex <= index && index < endIndex; }
    Slot& At(std::uint32_t index) { return slots[index - firstIndex]; }
};

class SlotTable {
public:
    SlotTable() = default;
    SlotTable(const SlotTable&) = delete;
    SlotTable& operator=(const SlotTable&) = delete;
    ~SlotTable();

    // The first slot, of a table that no other thread knows yet.
    void PublishFirst(const Chunk& chunk) {
        mFirstPage.slots[0].Publish(chunk, 0);
        mSlotCount.store(1, std::memory_order_relaxed);
    }

    // A piece of the active slot, or null. `size` is not 0. Looks into the first and the newest page only,
    // where that slot nearly always lies.
    char* TakeOfActive(std::size_t size) {
        const std::uint32_t active = mActiveSlot.load(std::memory_order_acquire);
        if (active < SlotPage::kSlots) [[likely]]
            return mFirstPage.slots[active].Take(size);
        SlotPage* const newest = mNewestPage.load(std::memory_order_acquire);
        return newest->Has(active) ? newest->At(active).Take(size) : nullptr;
    }

    // A piece of the open slots, or null if none of them has room. `size` is not 0.
    char* Take(std::size_t size);

    // Whether an open slot has room. Takes nothing and leaves no slot behind.
    bool HasRoom(std::size_t size) const;

    // A new slot for the caller to publish. When there is no memory for a page it throws `std::bad_alloc`,
    // and the index stays spent.
    Slot& Claim();

    // Calls `visit` with every published slot, newest page first.
    template <class Visit>
    void ForEach(Visit visit) {
        const std::uint32_t count = mSlotCount.load(std::memory_order_acquire);
        for (SlotPage* page = mNewestPage.load(std::memory_order_acquire); page != nullptr;
             page = page->previous)
            for (std::uint32_t i = page->firstIndex; i < std::min(count, page->endIndex); ++i)
                if (page->At(i).IsPublished()) visit(page->At(i));
    }

private:
    // The page of an index, or null while nobody has made it.
    SlotPage* FindPage(std::uint32_t index) const {
        SlotPage* page = mNewestPage.load(std::memory_order_acquire);
        if (index >= page->endIndex) return nullptr;
        while (index < page->firstIndex) page = page->previous;
        return page;
    }

    Slot* Find(std::uint32_t index) {
        if (index < SlotPage::kSlots) return &mFirstPage.slots[index];
        SlotPage* const page = FindPage(index);
        return page == nullptr ? nullptr : &page->At(index);
    }

    SlotPage* MakePagesTo(std::uint32_t index);
    char* TakeBehind(std::uint32_t active, std::size_t size);
    bool IsWorthLeaving(std::uint32_t active, std::uint32_t open);

    // Calls `visit` with the slots from `from` to `to` in order, until it gives something.
    template <class Visit>
    auto Search(std::uint32_t from, std::uint32_t to, Visit visit) const;

    std::atomic<std::uint32_t> mActiveSlot{0};  // the lowest index that is still worth trying
    std::atomic<std::uint32_t> mSlotCount{0};   // indices claimed so far
    std::atomic<SlotPage*> mNewestPage{&mFirstPage};
    // The slots are written all the time, what stands before them hardly ever: no cache line has both.
    [[maybe_unused]] char mPadding[64 - 16];
    SlotPage mFirstPage;
};

}  // namespace ZBase
