#include <Base/messages/Message.h>
#include <Base/messages/MessageParameters.h>
#include <Base/messages/MessageWalk.h>
#include <Base/messages/detail/Records.h>

#include <algorithm>
#include <cstring>
#include <vector>

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

using Texts = std::vector<const LocalizedText*>;

// The texts of a message by their languages; of several of one language the first counts.
Texts TextsOf(const Message& message) {
    Texts texts;
    RecordWalker walker(BlockOf(message));
    while (const Record* record = walker.Next()) {
        if (record->tag == TAG_LOCALIZED_TEXT) texts.push_back(&record->As<LocalizedText>());
    }
    const auto before = [](const LocalizedText* a, const LocalizedText* b) {
        return a->language < b->language;
    };
    const auto same = [](const LocalizedText* a, const LocalizedText* b) {
        return a->language == b->language;
    };
    std::stable_sort(texts.begin(), texts.end(), before);
    // The forms over ranges give a range, which Clang 14 does not compile.
    texts.erase(std::unique(texts.begin(), texts.end(), same), texts.end());
    return texts;
}

bool IsSame(const LocalizedText* one, const LocalizedText* other) {
    return one->language == other->language && std::strcmp(one->Text(), other->Text()) == 0;
}

// A look-up for each language would take time with the square of their number, which a document of XML
// chooses.
bool HasTextsOf(const Message& one, const Message& other) {
    if (FindRecord(BlockOf(one), TAG_LOCALIZED_TEXT) == nullptr &&
        FindRecord(BlockOf(other), TAG_LOCALIZED_TEXT) == nullptr)
        return true;
    return std::ranges::equal(TextsOf(one), TextsOf(other), IsSame);
}

bool HasIdentity(const Message& message) {
    return FindRecord(BlockOf(message), TAG_HEADER) != nullptr;
}

bool SaysTheSame(const Message& one, const Message& other) {
    return HasIdentity(one) == HasIdentity(other) && one.GetDomain() == other.GetDomain() &&
           one.GetID() == other.GetID() && IsSameText(one.GetTemplate(), other.GetTemplate()) &&
           HasParametersOf(one, other) && HasTextsOf(one, other);
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
