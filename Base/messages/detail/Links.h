#pragma once

#include <Base/messages/detail/Records.h>

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
/// what the level holds by then, so none outlives it. A level counts as rewritten when its nested records are
/// not those, at the same places and of the same lengths, that the cursor left there.
class LiveLinks {
public:
    explicit LiveLinks(const Block& level) : LiveLinks(level, FindLinks(level)) {}

    LiveLinks(const Block& level, Links<const Record> links) {
        mShape = Walk(level, [&](const Record& record, const Place& place) {
            if (&record == links.lowerLevel) mLowerLevel = place;
            if (&record == links.sameLevel) mSameLevel = place;
        });
    }

    /// The records behind the links, as the level is now; null where there is none, or it was dropped. Begins
    /// anew on a level that was rewritten, and tells so.
    template <class AnyBlock>
    auto Look(AnyBlock& level, bool& isRewritten) {
        using AnyRecord = typename RecordWalker<AnyBlock>::AnyRecord;
        Links<AnyRecord> now;
        const std::uint64_t shape = Walk(level, [&](AnyRecord& record, const Place& place) {
            if (record.tag == TAG_LOWER_LEVEL && place == mLowerLevel) now.lowerLevel = &record;
            if (record.tag == TAG_SAME_LEVEL && place == mSameLevel) now.sameLevel = &record;
        });
        isRewritten = shape != mShape;
        if (isRewritten) {
            now = FindLinks(level);
            *this = LiveLinks(level, {now.lowerLevel, now.sameLevel});
        }
        return now;
    }

    /// Drops the link of a tag, to which a step was taken.
    void Drop(ETag tag) { (tag == TAG_LOWER_LEVEL ? mLowerLevel : mSameLevel) = {}; }

    /// Takes note of what the cursor itself has changed.
    void Remember(const Block& level) {
        mShape = Walk(level, [](const Record&, const Place&) {});
    }

private:
    // Calls `visit` for each nested record; gives a number that tells where they stand and how long they are.
    template <class AnyBlock, class Visit>
    static std::uint64_t Walk(AnyBlock& level, Visit visit) {
        std::uint64_t shape = 0;
        const auto mix = [&](std::uint64_t value) {
            shape = (shape ^ value) * 0x9E3779B97F4A7C15u;
            shape ^= shape >> 32;
        };
        RecordWalker<AnyBlock> walker(level);
        while (auto* record = walker.Next()) {
            if (record->tag != TAG_LOWER_LEVEL && record->tag != TAG_SAME_LEVEL) continue;
            const Place place = walker.PlaceOf(*record);
            mix(place.block << 4 | record->tag);
            mix(std::uint64_t{place.offset} << 32 | record->length);
            visit(*record, place);
        }
        return shape;
    }

    Place mLowerLevel;
    Place mSameLevel;
    std::uint64_t mShape;
};

}  // namespace ZBase::detail
