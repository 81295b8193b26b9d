#include <Base/messages/detail/TreeBuilder.h>

#include <algorithm>
#include <utility>

namespace ZBase::detail {

namespace {

constexpr std::size_t kNestedHead = sizeof(Record) + sizeof(Block);

}  // namespace

TreeBuilder::TreeBuilder(Message& root) : mpRoot(&BlockOf(root)) {
    Restart();
}

void TreeBuilder::Restart() {
    mRun.clear();
    mRunHasDead = false;
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
    if (IsAtRoot()) mRun.clear();  // what a failure may have left there
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

// Writes the sizes of a nested message that is the run from `start` to `end`.
void TreeBuilder::WriteSizes(std::size_t start, std::size_t end) {
    Record& record = *reinterpret_cast<Record*>(&mRun[start]);
    record.length = static_cast<std::uint32_t>(end - start);
    InitializeBlock(record.As<Block>(), record.PayloadSize());
    record.As<Block>().free = 0;
}

void TreeBuilder::End() {
    if (IsAtRoot()) return;
    const std::size_t start = mLevels.back().start;
    mLevels.pop_back();
    if (mRun.size() - start - sizeof(Record) > kMaxPayloadSize) {
        mRun.resize(start);
        return;
    }
    WriteSizes(start, mRun.size());
    if (IsAtRoot()) MoveRunToRoot();
}

void TreeBuilder::MoveRunToRoot() {
    if (std::exchange(mRunHasDead, false)) DropDeadRecords();
    const Record& record = *reinterpret_cast<const Record*>(mRun.data());
    const Place place = Add(record.PayloadSize(), static_cast<ETag>(record.tag));
    if (place != kNowhere) std::memcpy(At(place).Payload(), record.Payload(), record.PayloadSize());
    mRun.clear();
}

// Once for the whole run, at its end, so that it is linear. A packed message has no dead records.
void TreeBuilder::DropDeadRecords() {
    struct Nested {
        std::size_t oldEnd;
        std::size_t start;
    };
    std::vector<Nested> open;
    std::size_t from = 0;
    std::size_t to = 0;
    do {
        const Record& record = *reinterpret_cast<const Record*>(&mRun[from]);
        const std::size_t length = record.length;
        const bool isNested = record.tag == TAG_LOWER_LEVEL || record.tag == TAG_SAME_LEVEL;
        if (isNested) open.push_back({from + length, to});
        const std::size_t moved = record.tag == TAG_DELETED ? 0 : isNested ? kNestedHead : length;
        std::memmove(&mRun[to], &mRun[from], moved);
        to += moved;
        from += isNested ? kNestedHead : length;
        for (; !open.empty() && from == open.back().oldEnd; open.pop_back())
            WriteSizes(open.back().start, to);
    } while (!open.empty());
    mRun.resize(to);
}

Record& TreeBuilder::At(Place place) {
    return IsAtRoot() ? *reinterpret_cast<Record*>(place) : *reinterpret_cast<Record*>(&mRun[place]);
}

// Adds a record to the current message, in any order; `kNowhere` if that is impossible.
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

bool TreeBuilder::HasRoom(Place place, std::size_t payloadSize, ETag tag) {
    return place != kNowhere && At(place).tag == tag && At(place).PayloadSize() >= payloadSize;
}

// Makes the record at `place` large enough for a payload. False when that is impossible; then the old record
// is deleted.
bool TreeBuilder::MakeRoom(Place& place, std::size_t payloadSize, ETag tag) {
    if (HasRoom(place, payloadSize, tag)) return true;
    const Place added = Add(payloadSize, tag);
    if (place != kNowhere) {
        At(place).tag = TAG_DELETED;
        mRunHasDead = mRunHasDead || !IsAtRoot();
    }
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

// A parameter is never left out, or the later ones would change their numbers.
void TreeBuilder::AddParameter(const std::string& text) {
    if (IsAtRoot()) {
        PlaceParameter(*mpLastRootBlock, text.c_str());
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

// The place of the text of a language; `kNowhere` if there is none.
TreeBuilder::Place& TreeBuilder::TextOf(unsigned short language) {
    for (Place& text : mLevels.back().texts) {
        if (text == kNowhere || At(text).As<LocalizedText>().language == language) return text;
    }
    return mLevels.back().furtherTexts[language];
}

void TreeBuilder::SetLocalizedText(unsigned short language, const std::string& text) {
    GrowLocalizedText(language, text, 0);
}

bool TreeBuilder::GrowLocalizedText(unsigned short language, const std::string& text, std::size_t stored) {
    Place& place = TextOf(language);
    std::size_t size = LocalizedTextPayloadSize(text.size());
    if (!HasRoom(place, size, TAG_LOCALIZED_TEXT)) {
        if (stored != 0) size = std::max(size, std::min(2 * size, kMaxPayloadSize));
        stored = 0;
        if (!MakeRoom(place, size, TAG_LOCALIZED_TEXT)) return false;
    }
    At(place).As<LocalizedText>().language = language;
    std::memcpy(At(place).Payload() + sizeof(LocalizedText) + stored, text.c_str() + stored,
                text.size() + 1 - stored);
    return true;
}

}  // namespace ZBase::detail
