#include <Base/memory/detail/SlotTable.h>

#include <utility>

namespace ZBase {

namespace {

// The free bytes at which a slot is given up, by the number of open slots, itself included.
constexpr std::uint32_t kMostOpen = 12;
constexpr std::size_t kLeaveBehind[kMostOpen + 1] = {
    4294967295,  // never read
    2048,       4096, 8192, 16384, 32768, 65536, 131072, 262144, 524288, 1048576, 2097152, 4194304,
};

}  // namespace

SlotTable::~SlotTable() {
    for (SlotPage* page = mNewestPage; page != &mFirstPage;) {
        SlotPage* const previous = page->previous;
        delete page;
        page = previous;
    }
}

SlotPage* SlotPage::NextInUse() {
    SlotPage* page = next.load(std::memory_order_acquire);
    while (page != nullptr && page->IsGivenUp()) {
        SlotPage* const behind = page->next.load(std::memory_order_acquire);
        if (behind == nullptr) return nullptr;
        // A thread that fails here finds another's link, which goes farther.
        if (next.compare_exchange_strong(page, behind, std::memory_order_acq_rel, std::memory_order_acquire))
            page = behind;
    }
    return page;
}

SlotPage* SlotTable::PageAtOrBefore(std::uint32_t index) const {
    SlotPage* page = mActivePage.load(std::memory_order_acquire);
    while (index < page->firstIndex) page = page->previous;
    while (!page->Has(index)) {
        SlotPage* const next = page->NextInUse();
        if (next == nullptr || index < next->firstIndex) break;
        page = next;
    }
    return page;
}

template <class Visit>
auto SlotTable::Search(SlotPage* page, std::uint32_t from, std::uint32_t to, Visit visit) {
    decltype(visit(std::declval<Slot>())) found{};
    for (; page != nullptr && page->firstIndex < to && !found; page = page->NextInUse()) {
        const std::uint32_t end = std::min(to, page->EndIndex());
        for (std::uint32_t i = std::max(from, page->firstIndex); i < end && !found; ++i)
            found = visit(page->At(i));
    }
    return found;
}

char* SlotTable::Take(std::size_t size) {
    const std::uint32_t active = mActiveSlot.load(std::memory_order_acquire);
    SlotPage* const page = PageAtOrBefore(active);
    if (mActivePage.load(std::memory_order_relaxed) != page)
        mActivePage.store(page, std::memory_order_release);
    if (page->Has(active))
        if (char* const piece = page->At(active).Take(size)) return piece;
    return TakeBehind(page, active, size);
}

char* SlotTable::TakeBehind(SlotPage* page, std::uint32_t active, std::size_t size) {
    const std::uint32_t count = mSlotCount.load(std::memory_order_acquire);
    if (active >= count) return nullptr;
    std::uint32_t next = active + 1;
    if (IsWorthLeaving(page, active, count - active)) {
        std::uint32_t found = active;
        if (!mActiveSlot.compare_exchange_strong(found, next)) next = found;
    }
    return Search(page, next, count, [size](const Slot& slot) { return slot.Take(size); });
}

bool SlotTable::IsWorthLeaving(SlotPage* page, std::uint32_t active, std::uint32_t open) {
    return open > kMostOpen || (page->Has(active) && page->At(active).HasAtMost(kLeaveBehind[open]));
}

bool SlotTable::HasRoom(std::size_t size) const {
    const std::uint32_t active = mActiveSlot.load(std::memory_order_acquire);
    return Search(PageAtOrBefore(active), active, mSlotCount.load(std::memory_order_acquire),
                  [size](const Slot& slot) { return slot.HasRoom(size); });
}

Slot SlotTable::Claim() {
    const std::uint32_t index = mSlotCount.fetch_add(1, std::memory_order_acq_rel);
    return MakePagesTo(index)->At(index);
}

SlotPage* SlotTable::MakePagesTo(std::uint32_t index) {
    SlotPage* page = mNewestPage.load(std::memory_order_acquire);
    while (index >= page->EndIndex()) page = AddPage(page);
    while (index < page->firstIndex) page = page->previous;
    return page;
}

// A page exists once the one before it links to it; then it is made known as the newest.
SlotPage* SlotTable::AddPage(SlotPage* newest) {
    SlotPage* page = newest->next.load(std::memory_order_acquire);
    if (page == nullptr) {
        auto* const made = new SlotPage;
        made->previous = newest;
        made->firstIndex = newest->EndIndex();
        if (newest->next.compare_exchange_strong(page, made, std::memory_order_acq_rel,
                                                 std::memory_order_acquire)) {
            page = made;
        } else {
            delete made;
        }
    }
    mNewestPage.compare_exchange_strong(newest, page, std::memory_order_acq_rel);
    return page;
}

}  // namespace ZBase
