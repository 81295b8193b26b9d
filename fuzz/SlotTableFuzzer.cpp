// The input is a program of operations on a table of slots, as one thread sees them; the model is a list of
// sizes.
//
// For: Base/memory/detail/SlotTable.cpp Base/memory/detail/SlotTable.h

#include <Base/memory/detail/SlotTable.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz/Check.h"
#include "tests/support/Choices.h"

namespace {

struct ModelSlot {
    std::optional<ZBase::Slot> claimed;  // until it is published or given up
    char* start = nullptr;
    std::size_t size = 0;
    std::size_t taken = 0;

    bool HasRoom(std::size_t wanted) const { return start != nullptr && size - taken >= wanted; }
};

class Program {
public:
    void Run(test::Choices& choices) {
        while (!choices.IsOver()) {
            Step(choices);
            CheckSlots();
        }
    }

private:
    void Step(test::Choices& choices) {
        const std::size_t size =
            8 + 8 * std::size_t{choices.Below(5) == 0 ? choices.Below(256) : choices.Below(6)};
        switch (choices.Below(8)) {
            case 0:
            case 1:
                return Claim();
            case 2:
                return EndOpen(choices, true);
            case 3:
                return EndOpen(choices, choices.Flag());
            case 4:
                if (mSlots.empty()) PublishFirst(size);
                return;
            case 5:
                fuzz::Check(mTable.HasRoom(size) == HasRoom(size), "HasRoom");
                return;
            case 6:
                return TakeOfActive(size);
            default:
                return Take(size);
        }
    }

    char* Memory(std::size_t size) {
        mBlocks.emplace_back(new char[size]);
        return mBlocks.back().get();
    }

    void PublishFirst(std::size_t size) {
        char* const start = Memory(size);
        mTable.PublishFirst({start, start + size});
        mSlots.push_back({std::nullopt, start, size, 0});
    }

    void Claim() { mSlots.push_back({mTable.Claim()}); }

    // Of one of the slots that were claimed and are neither published nor given up.
    void EndOpen(test::Choices& choices, bool publishes) {
        std::vector<ModelSlot*> open;
        for (ModelSlot& slot : mSlots)
            if (slot.claimed) open.push_back(&slot);
        if (open.empty()) return;
        ModelSlot& slot = *open[choices.Below(static_cast<unsigned int>(open.size()))];
        if (publishes) {
            slot.size = 8 * std::size_t{1 + choices.Below(256)} << choices.Below(8);
            slot.taken = 8 * std::size_t{choices.Below(2)};
            slot.start = Memory(slot.size);
            slot.claimed->Publish({slot.start, slot.start + slot.size}, slot.taken);
        } else {
            slot.claimed->GiveUp();
        }
        slot.claimed.reset();
    }

    bool HasRoom(std::size_t size) const {
        for (std::size_t i = mActive; i < mSlots.size(); ++i)
            if (mSlots[i].HasRoom(size)) return true;
        return false;
    }

    char* TakeFrom(std::size_t index, std::size_t size) {
        if (index >= mSlots.size() || !mSlots[index].HasRoom(size)) return nullptr;
        char* const piece = mSlots[index].start + mSlots[index].taken;
        mSlots[index].taken += size;
        return piece;
    }

    // It may see nothing where a whole search would.
    void TakeOfActive(std::size_t size) {
        char* const piece = mTable.TakeOfActive(size);
        if (piece != nullptr) fuzz::Check(piece == TakeFrom(mActive, size), "piece of the active slot");
    }

    // The active slot is left, whatever it has, once more than twelve are open; before that if it has no more
    // than 2048 bytes for one open slot, twice as many for two, and so on.
    void Take(std::size_t size) {
        char* expected = TakeFrom(mActive, size);
        if (expected == nullptr && mActive < mSlots.size()) {
            const std::size_t open = mSlots.size() - mActive;
            const ModelSlot& active = mSlots[mActive];
            const std::size_t next = mActive + 1;
            if (open > 12 ||
                (active.start != nullptr && active.size - active.taken <= std::size_t{1024} << open))
                mActive = next;
            for (std::size_t i = next; i < mSlots.size() && expected == nullptr; ++i)
                expected = TakeFrom(i, size);
        }
        fuzz::Check(mTable.Take(size) == expected, "Take");
    }

    // Each published one is visited once, with what was taken of it.
    void CheckSlots() {
        std::size_t visited = 0;
        std::size_t used = 0;
        mTable.ForEach([&](const ZBase::Slot& slot) {
            ++visited;
            used += slot.Used();
            fuzz::Check(slot.IsPublished() && slot.Used() <= slot.GetChunk().Size() &&
                            slot.HasRoom(slot.GetChunk().Size() - slot.Used()),
                        "a slot of the table");
        });
        for (const ModelSlot& slot : mSlots) {
            visited -= slot.start == nullptr ? 0 : 1;
            used -= slot.taken;
        }
        fuzz::Check(visited == 0 && used == 0, "the slots of the table");
    }

    ZBase::SlotTable mTable;
    std::vector<std::unique_ptr<char[]>> mBlocks;
    std::vector<ModelSlot> mSlots;
    std::size_t mActive = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    test::Choices choices(data, size < 4000 ? size : 4000);
    Program().Run(choices);
    return 0;
}
