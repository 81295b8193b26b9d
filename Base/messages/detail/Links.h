#pragma once

#include <Base/messages/detail/Records.h>

#include <cstdint>
#include <new>
#include <vector>

namespace ZBase::detail {

/// The records of a level that lead to further messages; null if there is none.
template <class AnyRecord>
struct Links {
    AnyRecord* lowerLevel = nullptr;
    AnyRecord* sameLevel = nullptr;
};

/// Of two records of a tag the later one is used, unless one of the other tag precedes it; kept for readers
/// of records with several.
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
/// what the level holds by then, so none outlives it. Additions keep records at their places, though some may
/// be dead by then. So a level counts as rewritten when at the place of a record that the cursor left there
/// is none of its length with its tag or the deleted one.
class LiveLinks {
public:
    /// Throws `std::bad_alloc`.
    explicit LiveLinks(const Block& level) {
        SetLinks(level, FindLinks(level));
        Note(level);
    }

    LiveLinks(const Block& level, Links<const Record> links) {
        SetLinks(level, links);
        Remember(level);
    }

    /// The records behind the links, as the level is now; null if there is none, or it was dropped. If the
    /// record of a link is dead, or there was none, searches for another. Starts over on a level that was
    /// rewritten, and returns that it did.
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
    void Drop(ETag tag) { (tag == TAG_LOWER_LEVEL ? mLowerLevel : mSameLevel) = {{}, 0, true}; }

    /// Records what is there after a step of the cursor. Without memory it records nothing: then rewriting is
    /// not noticed until the next step, and links still lead only to existing records.
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
        std::uint32_t length = 0;
        bool isDropped = false;

        bool LeadsTo(const Record& record, const Place& at) const {
            return at == place && record.length == length;
        }
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

    void SetLinks(const Block& level, Links<const Record> links) {
        mLowerLevel = LinkTo(level, links.lowerLevel);
        mSameLevel = LinkTo(level, links.sameLevel);
    }

    static Link LinkTo(const Block& level, const Record* wanted) {
        RecordWalker walker(level);
        while (const Record* record = walker.Next())
            if (record == wanted) return {walker.PlaceOf(*record), record->length, false};
        return {};
    }

    // New records are only appended to their block, so the remembered ones come in their order.
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
            if (record->tag == TAG_LOWER_LEVEL && mLowerLevel.LeadsTo(*record, place))
                kept.lowerLevel = record;
            if (record->tag == TAG_SAME_LEVEL && mSameLevel.LeadsTo(*record, place)) kept.sameLevel = record;
        }
        return kept;
    }

    template <class AnyRecord>
    static void SeekAnew(const Block& level, Link& link, AnyRecord* found, AnyRecord*& now) {
        if (now != nullptr || link.isDropped) return;
        now = found;
        link = LinkTo(level, found);
    }

    Link mLowerLevel;
    Link mSameLevel;
    std::vector<Remembered> mRecords;  // in the order of a walk
};

}  // namespace ZBase::detail
