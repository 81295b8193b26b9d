#pragma once

// The chunks of a lock-free buffer, and how its threads share them.
//
// Each chunk has a slot: its start, its end, and `current`, its next free byte. A thread takes a piece by
// moving `current` with a compare-and-swap; that is the one locked operation of an ordinary allocation. Slots
// are numbered. An index is claimed by an atomic increment, once for each chunk, and the slot is published by
// the store of its `current`; until then it reads as empty and is skipped. Slots are never removed, so a
// found slot stays where it is.
//
// Several threads that find no space each add a chunk, so more than one slot may have free space. A search
// starts at the active slot and goes through all later ones. To keep it short the active slot is given up
// while it still has free bytes: the more slots are open behind it, the more bytes may be wasted. With more
// than twelve it is given up whatever it has. So wasted tails limit a search to a dozen slots.
//
// Slots are in pages of sixteen, the first of which is part of the buffer. Pages are only added behind the
// newest one, by a compare-and-swap whose loser uses the winner's page, and are freed with the buffer. Each
// links to the one before it, and to the next one worth a search: a page whose slots were all given up, since
// their chunks were refused, stays empty for good, and any thread that meets it links past it. So a search
// costs the open slots, however many were refused. Searches start from a page near the active slot, which the
// table remembers.

#include <Base/memory/detail/BufferBase.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ZBase {

class Slot;

struct SlotPage {
    static constexpr std::uint32_t kSlots = 16;

    // Next free byte of each chunk; null: the slot is empty or not yet published.
    std::atomic<char*> current[kSlots]{};

    // Bounds, in arrays of their own so that reading them does not contend with `current`. Written once,
    // before `current`, and not read earlier, so a new page need not clear them.
    char* starts[kSlots];
    char* ends[kSlots];

    SlotPage* previous = nullptr;  // the page before this one; null on the first
    std::uint32_t firstIndex = 0;
    std::atomic<std::uint32_t> givenUp{0};  // slots that stay empty for good

    // The next page, later the next with a slot in use. Null on the newest one.
    std::atomic<SlotPage*> next{nullptr};

    std::uint32_t EndIndex() const { return firstIndex + kSlots; }
    bool Has(std::uint32_t index) const { return index - firstIndex < kSlots; }
    bool IsGivenUp() const { return givenUp.load(std::memory_order_acquire) == kSlots; }
    Slot At(std::uint32_t index);

    // The next page with a slot that is or may be published; null if there is none.
    SlotPage* NextInUse();
};

// A slot of a page.
class Slot {
public:
    Slot(SlotPage& page, std::uint32_t place) : mPage(page), mPlace(place) {}

    bool IsPublished() const { return Current() != nullptr; }

    // Of a published slot: its chunk, and the bytes taken so far.
    Chunk GetChunk() const { return {mPage.starts[mPlace], mPage.ends[mPlace]}; }
    std::size_t Used() const { return static_cast<std::size_t>(Current() - mPage.starts[mPlace]); }

    // Whether a published slot has at most `size` free bytes.
    bool HasAtMost(std::size_t size) const {
        const char* const current = Current();
        return current != nullptr && Room(current) <= size;
    }

    bool HasRoom(std::size_t size) const {
        const char* const current = Current();
        return current != nullptr && Room(current) >= size;
    }

    // A piece of the chunk, or null if it is too full.
    char* Take(std::size_t size) const {
        char* current = Current();
        if (current == nullptr) return nullptr;
        while (Room(current) >= size)
            if (mPage.current[mPlace].compare_exchange_weak(current, current + size,
                                                            std::memory_order_relaxed))
                return current;
        return nullptr;
    }

    // Makes the chunk known to all threads, its first `used` bytes taken.
    void Publish(const Chunk& chunk, std::size_t used) const {
        mPage.starts[mPlace] = chunk.start;
        mPage.ends[mPlace] = chunk.end;
        mPage.current[mPlace].store(chunk.start + used, std::memory_order_release);
    }

    // Instead of `Publish`: the chunk was refused.
    void GiveUp() const { mPage.givenUp.fetch_add(1, std::memory_order_release); }

private:
    char* Current() const { return mPage.current[mPlace].load(std::memory_order_acquire); }
    std::size_t Room(const char* current) const {
        return static_cast<std::size_t>(mPage.ends[mPlace] - current);
    }

    SlotPage& mPage;
    std::uint32_t mPlace;
};

inline Slot SlotPage::At(std::uint32_t index) {
    return {*this, index - firstIndex};
}

class SlotTable {
public:
    SlotTable() = default;
    SlotTable(const SlotTable&) = delete;
    SlotTable& operator=(const SlotTable&) = delete;
    ~SlotTable();

    // The first slot, of a table that no other thread has yet.
    void PublishFirst(const Chunk& chunk) {
        Slot(mFirstPage, 0).Publish(chunk, 0);
        mSlotCount.store(1, std::memory_order_relaxed);
    }

    // A piece of the active slot, or null. `size` is not 0. Searches the first and the active page only,
    // where that slot nearly always is.
    char* TakeOfActive(std::size_t size) {
        const std::uint32_t active = mActiveSlot.load(std::memory_order_acquire);
        if (active < SlotPage::kSlots) [[likely]]
            return Slot(mFirstPage, active).Take(size);
        SlotPage* const page = mActivePage.load(std::memory_order_acquire);
        return page->Has(active) ? page->At(active).Take(size) : nullptr;
    }

    // A piece of the open slots, or null if none has space. `size` is not 0.
    char* Take(std::size_t size);

    // Whether an open slot has space. Takes nothing and gives up no slot.
    bool HasRoom(std::size_t size) const;

    // A new slot for the caller to publish. When there is no memory for a page it throws `std::bad_alloc`,
    // and the index stays spent.
    Slot Claim();

    // Calls `visit` with every published slot, newest page first.
    template <class Visit>
    void ForEach(Visit visit) {
        const std::uint32_t count = mSlotCount.load(std::memory_order_acquire);
        for (SlotPage* page = mNewestPage.load(std::memory_order_acquire); page != nullptr;
             page = page->previous)
            for (std::uint32_t i = page->firstIndex; i < std::min(count, page->EndIndex()); ++i)
                if (page->At(i).IsPublished()) visit(page->At(i));
    }

private:
    // The last page in use that begins at or before an index, searched from the active page.
    SlotPage* PageAtOrBefore(std::uint32_t index) const;

    // The page of an index that was claimed. Throws `std::bad_alloc`.
    SlotPage* MakePagesTo(std::uint32_t index);
    SlotPage* AddPage(SlotPage* newest);

    char* TakeBehind(SlotPage* page, std::uint32_t active, std::size_t size);
    static bool IsWorthLeaving(SlotPage* page, std::uint32_t active, std::uint32_t open);

    // Calls `visit` with the slots from `from` to `to` in order, until it returns something. `page` begins at
    // or before `from`.
    template <class Visit>
    static auto Search(SlotPage* page, std::uint32_t from, std::uint32_t to, Visit visit);

    std::atomic<std::uint32_t> mActiveSlot{0};  // the lowest index that is still worth trying
    std::atomic<std::uint32_t> mSlotCount{0};   // indices claimed so far
    std::atomic<SlotPage*> mNewestPage{&mFirstPage};
    std::atomic<SlotPage*> mActivePage{&mFirstPage};  // that of the active slot, or one nearby
    // The slots are written all the time, the members before them hardly ever: padding keeps both out of the
    // pairs of cache lines that the processor fetches together.
    [[maybe_unused]] char mPadding[128 - 24];
    SlotPage mFirstPage;
};

}  // namespace ZBase
