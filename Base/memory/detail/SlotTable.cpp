#include <Base/memory/detail/SlotTable.h>

#include <utility>

namespace ZBase {

namespace {

// Room in bytes with which a slot is left behind, by the number of open slots, itself included.
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

template <class Visit>
auto SlotTable::Search(std::uint32_t from, std::uint32_t to, Visit visit) const {
    decltype(visit(std::declval<Slot>())) found{};
    while (from < to && !found) {
        SlotPage* const page = FindPage(from);
        if (page == nullptr) break;  // nothing is published there yet, nor behind it
        for (const std::uint32_t end = std::min(to, page->endIndex); from != end && !found; ++from)
            found = visit(page->At(from));
    }
    return found;
}

char* SlotTable::Take(std::size_t size) {
    const std::uint32_t active = mActiveSlot.load(std::memory_order_acquire);
    if (SlotPage* const page = FindPage(active))
        if (char* const piece = page->At(active).Take(size)) return piece;
    return TakeBehind(active, size);
}

char* SlotTable::TakeBehind(std::uint32_t active, std::size_t size) {
    const std::uint32_t count = mSlotCount.load(std::memory_order_acquire);
    if (active >= count) return nullptr;
    std::uint32_t next = active + 1;
    if (IsWorthLeaving(active, count - active)) {
        std::uint32_t found = active;
        if (!mActiveSlot.compare_exchange_strong(found, next)) next = found;
    }
    return Search(next, count, [size](const Slot& slot) { return slot.Take(size); });
}

bool SlotTable::IsWorthLeaving(std::uint32_t active, std::uint32_t open) {
    if (open > kMostOpen) return true;
    SlotPage* const page = FindPage(active);
    return page != nullptr && page->At(active).HasAtMost(kLeaveBehind[open]);
}

bool SlotTable::HasRoom(std::size_t size) const {
    return Search(mActiveSlot.load(std::memory_order_acquire), mSlotCount.load(std::memory_order_acquire),
                  [size](const Slot& slot) { return slot.HasRoom(size); });
}

Slot SlotTable::Claim() {
    const std::uint32_t index = mSlotCount.fetch_add(1, std::memory_order_acq_rel);
    SlotPage* page = FindPage(index);
    if (page == nullptr) page = MakePagesTo(index);
    return page->At(index);
}

SlotPage* SlotTable::MakePagesTo(std::uint32_t index) {
    SlotPage* newest = mNewestPage.load(std::memory_order_acquire);
    while (index >= newest->endIndex) {
        auto* const page = new SlotPage;
        page->previous = newest;
        page->firstIndex = newest->endIndex;
        page->endIndex = page->firstIndex + SlotPage::kSlots;
        if (mNewestPage.compare_exchange_strong(newest, page)) {
            newest = page;
        } else {
            delete page;
        }
    }
    return FindPage(index);
}

}  // namespace ZBase
