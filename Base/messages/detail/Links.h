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

}  // namespace ZBase::detail
