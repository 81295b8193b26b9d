// The cost of pages of refused chunks for a search of the table, counted in links followed.

#include <Base/memory/detail/SlotTable.h>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using namespace ZBase;

// Pages linked in order, from the first to the newest.
class SlotTablePages : public testing::Test {
protected:
    static constexpr std::size_t kPages = 2500;

    void SetUp() override {
        for (std::size_t i = 0; i != kPages; ++i) {
            mPages.push_back(std::make_unique<SlotPage>());
            mPages[i]->firstIndex = static_cast<std::uint32_t>(i) * SlotPage::kSlots;
            if (i == 0) continue;
            mPages[i]->previous = mPages[i - 1].get();
            mPages[i - 1]->next = mPages[i].get();
        }
    }
    SlotPage* At(std::size_t i) { return mPages[i].get(); }
    void GiveUp(std::size_t i, std::uint32_t slots = SlotPage::kSlots) {
        for (std::uint32_t slot = 0; slot != slots; ++slot) At(i)->At(At(i)->firstIndex + slot).GiveUp();
    }
    // The number of pages that a search from page `from` visits after it.
    std::size_t PagesBehind(std::size_t from) {
        std::size_t count = 0;
        for (SlotPage* page = At(from)->NextInUse(); page != nullptr; page = page->NextInUse()) ++count;
        return count;
    }

private:
    std::vector<std::unique_ptr<SlotPage>> mPages;
};

TEST_F(SlotTablePages, ThatWereGivenUpAreLinkedPastByTheFirstWhoMeetsThem) {
    for (std::size_t i = 1; i != kPages - 1; ++i) GiveUp(i);
    EXPECT_EQ(At(0)->next, At(1));
    EXPECT_EQ(At(0)->NextInUse(), At(kPages - 1));
    EXPECT_EQ(At(0)->next, At(kPages - 1));  // one link for all later searches
    EXPECT_EQ(PagesBehind(0), 1u);
}

TEST_F(SlotTablePages, BetweenOnesInUseCostNothing) {
    for (std::size_t i = 1; i != kPages; ++i)
        if (i % 100 != 0) GiveUp(i);
    EXPECT_EQ(PagesBehind(0), 24u);
    for (std::size_t i = 0; i != 2400; i += 100) EXPECT_EQ(At(i)->next, At(i + 100));
}

// The next page is linked to the newest one, which therefore stays reachable.
TEST_F(SlotTablePages, NewestStaysLinkedWhenItIsGivenUp) {
    for (std::size_t i = 1; i != kPages; ++i) GiveUp(i);
    EXPECT_EQ(At(0)->NextInUse(), nullptr);
    EXPECT_EQ(At(0)->next, At(kPages - 1));
}

TEST_F(SlotTablePages, WithOneSlotThatMayStillComeAreLookedAt) {
    GiveUp(1, SlotPage::kSlots - 1);
    EXPECT_EQ(At(0)->NextInUse(), At(1));
    GiveUp(2);
    EXPECT_EQ(PagesBehind(0), kPages - 2);
}

// Refused slots do not hide the chunk after them.
TEST(SlotTable, ChunkBehindRefusedOnesIsFoundFromTheFirstSlot) {
    alignas(8) char memory[64];
    SlotTable table;
    for (int i = 0; i != 40000; ++i) table.Claim().GiveUp();
    table.Claim().Publish({memory, memory + sizeof memory}, 0);
    EXPECT_TRUE(table.HasRoom(64));
    EXPECT_FALSE(table.HasRoom(72));
    for (char* piece = memory; piece != memory + sizeof memory; piece += 8) EXPECT_EQ(table.Take(8), piece);
    EXPECT_EQ(table.Take(8), nullptr);
    EXPECT_FALSE(table.HasRoom(8));
}

}  // namespace
