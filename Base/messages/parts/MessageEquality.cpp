#include <Base/messages/Message.h>
#include <Base/messages/MessageParameters.h>
#include <Base/messages/MessageWalk.h>
#include <Base/messages/detail/Records.h>

#include <algorithm>
#include <cstring>

namespace ZBase {

using namespace detail;

namespace {

bool IsSameText(const char* one, const char* other) {
    if (one == nullptr || other == nullptr) return one == other;
    return std::strcmp(one, other) == 0;
}

bool HasParametersOf(const Message& one, const Message& other) {
    auto at = MessageParameters(other).begin();
    for (const char* parameter : MessageParameters(one)) {
        if (at == std::default_sentinel || !IsSameText(parameter, *at)) return false;
        ++at;
    }
    return at == std::default_sentinel;
}

// Whether `other` has a text in every language that `one` has a text in.
bool HasTextsOf(const Message& one, const Message& other) {
    RecordWalker walker(BlockOf(one));
    while (const Record* record = walker.Next()) {
        if (record->tag != TAG_LOCALIZED_TEXT) continue;
        const unsigned short language = record->As<LocalizedText>().language;
        // Of several texts of one language the first counts.
        if (!IsSameText(one.GetLocalizedText(language), other.GetLocalizedText(language))) return false;
    }
    return true;
}

bool SaysTheSame(const Message& one, const Message& other) {
    return one.GetDomain() == other.GetDomain() && one.GetID() == other.GetID() &&
           IsSameText(one.GetTemplate(), other.GetTemplate()) && HasParametersOf(one, other) &&
           HasTextsOf(one, other) && HasTextsOf(other, one);
}

}  // namespace

bool operator==(const Message& one, const Message& other) {
    MessageWalk oneWalk(one);
    MessageWalk otherWalk(other);
    auto at = otherWalk.begin();
    for (const MessageVisit& visit : oneWalk) {
        if (at == std::default_sentinel || visit.relation != at->relation || visit.parent != at->parent ||
            !SaysTheSame(*visit.message, *at->message))
            return false;
        ++at;
    }
    return at == std::default_sentinel;
}

}  // namespace ZBase
