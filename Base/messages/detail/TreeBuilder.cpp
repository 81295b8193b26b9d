#include <Base/messages/detail/TreeBuilder.h>

namespace ZBase::detail {

namespace {

constexpr std::size_t kNestedHead = sizeof(Record) + sizeof(Block);

}  // namespace

TreeBuilder::TreeBuilder(Message& root) : mpRoot(&BlockOf(root)) {
    Restart();
}

void TreeBuilder::Restart() {
    mRun.clear();
    mLevels.clear();
    mLevels.emplace_back();
    mpLastRootBlock = mpRoot;
    mRootBlocks = 1;
    FollowRootChain();
    NoteRootRecords();
}

void TreeBuilder::FollowRootChain() {
    for (Block* next = mpLastRootBlock->next; next != nullptr; next = mpLastRootBlock->next) {
        mpLastRootBlock = next;
        ++mRootBlocks;
    }
}

void TreeBuilder::NoteRootRecords() {
    RecordWalker walker(*mpRoot);
    while (const Record* record = walker.Next()) {
        Place none = kNowhere;
        Place& place = record->tag == TAG_HEADER           ? mLevels.front().header
                       : record->tag == TAG_TEMPLATE       ? mLevels.front().textTemplate
                       : record->tag == TAG_LOCALIZED_TEXT ? TextOf(record->As<LocalizedText>().language)
                                                           : none;
        if (place == kNowhere) place = reinterpret_cast<Place>(record);
    }
}

void TreeBuilder::Begin(ETag tag) {
    Level level;
    level.start = mRun.size();
    mRun.resize(mRun.size() + kNestedHead);
    reinterpret_cast<Record*>(&mRun[level.start])->tag = tag;
    try {
        mLevels.push_back(std::move(level));
    } catch (...) {
        mRun.resize(level.start);
        throw;
    }
}

void TreeBuilder::End() {
    if (IsAtRoot()) return;
    const std::size_t start = mLevels.back().start;
    mLevels.pop_back();
    const std::size_t size = mRun.size() - start;
    if (size - sizeof(Record) > kMaxPayloadSize) {
        mRun.resize(start);
        return;
    }
    Record& record = *reinterpret_cast<Record*>(&mRun[start]);
    record.length = static_cast<std::uint32_t>(size);
    InitializeBlock(record.As<Block>(), record.PayloadSize());
    record.As<Block>().free = 0;
    if (!IsAtRoot()) return;
    if (const Place place = Add(record.PayloadSize(), static_cast<ETag>(record.tag)); place != kNowhere)
        std::memcpy(At(place).Payload(), record.Payload(), record.PayloadSize());
    mRun.clear();
}

Record& TreeBuilder::At(Place place) {
    return IsAtRoot() ? *reinterpret_cast<Record*>(place) : *reinterpret_cast<Record*>(&mRun[place]);
}

// Adds a record to the current message, where order does not matter; nowhere if that is impossible.
TreeBuilder::Place TreeBuilder::Add(std::size_t payloadSize, ETag tag) {
    if (IsAtRoot()) {
        const Record* record = PlaceRecord(RootSearchStart(), payloadSize, tag, false);
        FollowRootChain();
        return reinterpret_cast<Place>(record);
    }
    if (payloadSize > kMaxPayloadSize) return kNowhere;
    const Place place = mRun.size();
    mRun.resize(place + sizeof(Record) + payloadSize);
    Record& record = At(place);
    record.length = static_cast<std::uint32_t>(sizeof(Record) + payloadSize);
    record.tag = tag;
    return place;
}

// Sees to it that the record at `place` can hold a payload. False when that is impossible; what was there is
// gone then.
bool TreeBuilder::MakeRoom(Place& place, std::size_t payloadSize, ETag tag) {
    if (place != kNowhere && At(place).tag == tag && At(place).PayloadSize() >= payloadSize) return true;
    const Place added = Add(payloadSize, tag);
    if (place != kNowhere) At(place).tag = TAG_DELETED;
    if (added != kNowhere) place = added;
    return added != kNowhere;
}

void TreeBuilder::SetDomainAndID(unsigned short domain, int id) {
    Place& place = mLevels.back().header;
    const bool isNew = place == kNowhere;
    if (!MakeRoom(place, sizeof(Header), TAG_HEADER)) return;
    Header& header = At(place).As<Header>();
    header.id = id;
    header.domain = domain;
    if (!isNew) return;
    header.radix = kDefaultRadix;
    header.width = kDefaultWidth;
}

void TreeBuilder::SetTemplate(const std::string& text) {
    Place& place = mLevels.back().textTemplate;
    const std::size_t size = text.size() + 1;
    if (MakeRoom(place, size, TAG_TEMPLATE)) std::memcpy(At(place).Payload(), text.c_str(), size);
}

// A parameter never goes without a place, or the later ones would change their numbers.
void TreeBuilder::AddParameter(const std::string& text) {
    if (IsAtRoot()) {
        const Record* record = PlaceText(*mpLastRootBlock, text.c_str(), TAG_PARAMETER, true);
        while (record == nullptr) record = PlaceText(*mpLastRootBlock, "", TAG_PARAMETER, true);
        FollowRootChain();
        return;
    }
    const Place place = Add(text.size() + 1, TAG_PARAMETER);
    if (place != kNowhere) {
        std::memcpy(At(place).Payload(), text.c_str(), text.size() + 1);
    } else {
        AddParameter("");
    }
}

// Where the text of a language is noted; nowhere if there is none.
TreeBuilder::Place& TreeBuilder::TextOf(unsigned short language) {
    for (Place& text : mLevels.back().texts) {
        if (text == kNowhere || At(text).As<LocalizedText>().language == language) return text;
    }
    return mLevels.back().furtherTexts[language];
}

void TreeBuilder::SetLocalizedText(unsigned short language, const std::string& text) {
    Place& place = TextOf(language);
    if (!MakeRoom(place, LocalizedTextPayloadSize(text.size()), TAG_LOCALIZED_TEXT)) return;
    At(place).As<LocalizedText>().language = language;
    std::memcpy(At(place).Payload() + sizeof(LocalizedText), text.c_str(), text.size() + 1);
}

}  // namespace ZBase::detail
