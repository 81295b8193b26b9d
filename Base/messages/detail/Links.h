#pragma once

#include <Base/messages/detail/Records.h>

#include <cstdint>
#include <new>
#include <vector>

namespace ZBase::detail {

/// The records of a level through which a cursor goes on; null where there is none.
template <class AnyRecord>
struct Links {
    AnyRecord* lowerLevel = nullptr;
    AnyRecord* sameLevel = nullptr;
};

/// Meant: of two records of a tag the later one counts, as long as there was none of the other tag before it.
template <class AnyBlock>
auto FindLinks(AnyBlock& block) {
    RecordWalker<AnyBlock> walker(block);
    Links<typename RecordWalker<AnyBlock>::AnyRecord> links;
    while (links.lowerLevel == nullptr || links.sameLevel == nullptr) {
        auto* record = walker.Next();
        if (record == nullptr) break;
        if (record->tag == TAG_LOWER_LEVEL) links.lowerLevel = record;
        if (record->tag == TAG_SAME_LEVEL) links.sameLevel = record;
    }
    return links;
}

/// The links of a level that may be rewritten between two steps. They are kept as places and looked up in
/// what the level holds by then, so none outlives it. What is only added to, whoever does it, keeps its
/// records where they are, though some may be dead by then. So a level counts as rewritten when at the place
/// of a record that the cursor left there is none of its length that has its tag or is dead.
class LiveLinks {
public:
    /// Throws `std::bad_alloc`.
    explicit LiveLinks(const Block& level) {
        SetPlaces(level, FindLinks(level));
        Note(level);
    }

    LiveLinks(const Block& level, Links<const Record> links) {
        SetPlaces(level, links);
        Remember(level);
    }

    /// The records behind the links, as the level is now; null where there is none, or it was dropped. Where
    /// the record of a link is dead, or there was none, looks for another. Begins anew on a level that was
    /// rewritten, and tells so.
    template <class AnyBlock>
    auto Look(AnyBlock& level, bool& isRewritten) {
        isRewritten = !HoldsAllRemembered(level);
        if (isRewritten) *this = LiveLinks(level, FindLinks(static_cast<const Block&>(level)));
        auto now = FindKept(level);
        if ((now.lowerLevel != nullptr || mLowerLevel.isDropped) &&
            (now.sameLevel != nullptr || mSameLevel.isDropped))
            return now;
        const auto found = FindLinks(level);
        SeekAnew(level, mLowerLevel, found.lowerLevel, now.lowerLevel);
        SeekAnew(level, mSameLevel, found.sameLevel, now.sameLevel);
        return now;
    }

    /// Drops the link of a tag, to which a step was taken.
    void Drop(ETag tag) { (tag == TAG_LOWER_LEVEL ? mLowerLevel : mSameLevel) = {{}, true}; }

    /// Takes note of what is there after a step of the cursor. Without memory it notes nothing: then no
    /// rewriting is told until the next step, and a link still leads only to what is there.
    void Remember(const Block& level) {
        try {
            Note(level);
        } catch (const std::bad_alloc&) {
            mRecords.clear();
        }
    }

private:
    struct Link {
        Place place;
        bool isDropped = false;
    };
    struct Remembered {
        Place place;
        std::uint32_t length;
        unsigned char tag;
    };

    void Note(const Block& level) {
        mRecords.clear();
        RecordWalker walker(level);
        while (const Record* record = walker.Next())
            mRecords.push_back({walker.PlaceOf(*record), record->length, record->tag});
    }

    void SetPlaces(const Block& level, Links<const Record> links) {
        mLowerLevel.place = PlaceIn(level, links.lowerLevel);
        mSameLevel.place = PlaceIn(level, links.sameLevel);
    }

    static Place PlaceIn(const Block& level, const Record* wanted) {
        RecordWalker walker(level);
        while (const Record* record = walker.Next())
            if (record == wanted) return walker.PlaceOf(*record);
        return {};
    }

    // New records stand only behind those of their block, so the remembered ones come in their order.
    bool HoldsAllRemembered(const Block& level) const {
        auto next = mRecords.begin();
        RecordWalker walker(level);
        while (next != mRecords.end()) {
            const Record* record = walker.Next();
            if (record == nullptr) return false;
            if (walker.PlaceOf(*record) != next->place) continue;
            if (record->length != next->length) return false;
            if (record->tag != next->tag && record->tag != TAG_DELETED) return false;
            ++next;
        }
        return true;
    }

    template <class AnyBlock>
    auto FindKept(AnyBlock& level) const {
        RecordWalker<AnyBlock> walker(level);
        Links<typename RecordWalker<AnyBlock>::AnyRecord> kept;
        while (auto* record = walker.Next()) {
            const Place place = walker.PlaceOf(*record);
            if (record->tag == TAG_LOWER_LEVEL && place == mLowerLevel.place) kept.lowerLevel = record;
            if (record->tag == TAG_SAME_LEVEL && place == mSameLevel.place) kept.sameLevel = record;
        }
        return kept;
    }

    template <class AnyRecord>
    static void SeekAnew(const Block& level, Link& link, AnyRecord* found, AnyRecord*& now) {
        if (now != nullptr || link.isDropped) return;
        now = found;
        link.place = PlaceIn(level, found);
    }

    Link mLowerLevel;
    Link mSameLevel;
    std::vector<Remembered> mRecords;  // in the order of a walk
};

}  // namespace ZBase::detail
