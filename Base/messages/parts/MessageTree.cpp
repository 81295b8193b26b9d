#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ZBase {

using namespace detail;

namespace {

constexpr TagSet kNotPrepended{TAG_DELETED, TAG_SAME_LEVEL, TAG_WIDE_MESSAGE};
constexpr std::uint32_t kNestedHead = sizeof(Record) + sizeof(Block);

// The smallest block. Content that is put aside is in its chain.
struct Aside : Block {
    Aside() { InitializeBlock(*this, sizeof(Block)); }
    ~Aside() { FreeBlockChain(*this); }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
};

// A text that may be in the block itself, and is moved aside with the content.
class FollowedText {
public:
    FollowedText(const char* text, const Block& block)
        : mpText(text),
          mOffset(reinterpret_cast<std::uintptr_t>(text) - reinterpret_cast<std::uintptr_t>(&block)) {
        mMoves = text != nullptr && mOffset >= sizeof(Block) && mOffset < block.capacity - block.free;
    }
    const char* In(const Aside& aside) const {
        const Block* image = aside.next;
        return mMoves ? reinterpret_cast<const char*>(image->Bytes()) + mOffset : mpText;
    }

private:
    const char* mpText;
    std::uintptr_t mOffset;
    bool mMoves;
};

void Nest(Block& block, ETag tag, unsigned short domain, int id, const char* textTemplate) {
    if (MessageOf(block).IsEmpty()) {
        PlaceHeaderAndTemplate(block, domain, id, textTemplate);
        return;
    }
    if (SumRecordLengths(block, kNotNested) > kMaxPayloadSize - sizeof(Block)) return;
    const FollowedText text(textTemplate, block);
    Aside aside;
    if (!PutAside(block, aside)) return;
    PlaceHeaderAndTemplate(block, domain, id, text.In(aside));
    NestCopy(aside, block, tag);
}

const Block* FollowingOrNull(const Block& block) {
    const Record* record = FindRecord(block, TAG_SAME_LEVEL);
    return record == nullptr ? nullptr : &record->As<Block>();
}

// The bytes of what follows a message that `other` is put in front of: the messages after `other`, each
// nested in the one before, and innermost the content of `block`.
std::uint64_t SizeOfLevelBehind(const Block& other, const Block& block) {
    std::uint64_t size = sizeof(Block) + SumRecordLengths(block, kNotNested);
    for (const Block* at = FollowingOrNull(other); at != nullptr; at = FollowingOrNull(*at)) {
        size += kNestedHead + SumRecordLengths(*at, kNotPrepended);
    }
    return size;
}

// The bytes of the records of `message` before a record of `nestedLength` bytes, if all of them were placed
// at the end of an empty message of `capacity` and then that one in the first gap.
std::size_t BytesBeforeNested(const Block& message, std::uint32_t capacity, std::uint32_t nestedLength) {
    std::size_t bytes = 0;
    std::uint64_t free = capacity - sizeof(Block);
    RecordWalker walker(message);
    while (const Record* record = walker.Next()) {
        if (kNotPrepended.Contains(record->tag)) continue;
        const std::uint64_t length = record->length;
        if (length > free) {
            if (nestedLength <= free) return bytes;
            free = std::max(length, kStockCapacity - sizeof(Block));
        }
        free -= length;
        bytes += length;
    }
    return bytes;
}

// Writes a level into the bytes from `front` to `back`: message after message, each nested in the one before,
// in a block that they fill exactly. The fields before a nested message are written forward from the front,
// those after it backward from the back.
class LevelWriter {
public:
    LevelWriter(unsigned char* front, std::size_t size) : mpFront(front), mpBack(front + size) {}

    // Writes a message and the heads of the one nested in it, as it would be in a message of `capacity`.
    void Add(const Block& message, std::uint32_t capacity) {
        BeginBlock();
        const auto total = static_cast<std::size_t>(SumRecordLengths(message, kNotPrepended));
        const auto nestedLength = static_cast<std::uint32_t>(Left() - total);
        const std::size_t before = BytesBeforeNested(message, capacity, nestedLength);
        mpBack -= total - before;
        unsigned char* behind = mpBack;
        const unsigned char* const end = mpFront + before;
        RecordWalker walker(message);
        while (const Record* record = walker.Next()) {
            if (kNotPrepended.Contains(record->tag)) continue;
            unsigned char*& to = mpFront != end ? mpFront : behind;
            std::memcpy(to, record, record->length);
            to += record->length;
        }
        Record& nested = *reinterpret_cast<Record*>(mpFront);
        nested.length = nestedLength;
        nested.tag = TAG_SAME_LEVEL;
        mpFront += sizeof(Record);
    }

    // Writes the last message.
    void End(const Block& content) {
        Block& block = *reinterpret_cast<Block*>(mpFront);
        InitializeBlock(block, static_cast<std::uint32_t>(Left()));
        CopyRecords(content, block, kNotNested);
    }

private:
    std::size_t Left() const { return static_cast<std::size_t>(mpBack - mpFront); }

    void BeginBlock() {
        Block& block = *reinterpret_cast<Block*>(mpFront);
        InitializeBlock(block, static_cast<std::uint32_t>(Left()));
        block.free = 0;
        mpFront += sizeof(Block);
    }

    unsigned char* mpFront;
    unsigned char* mpBack;
};

// The result is, byte for byte, the same as from prepending the messages one by one, the last one first; but
// the content is copied once and not once for each.
void PrependLevel(Block& block, const Block& other) {
    const std::uint64_t size = SizeOfLevelBehind(other, block);
    if (size > kMaxPayloadSize) return;
    Aside aside;
    if (!PutAside(block, aside)) return;
    CopyRecords(other, block, kNotPrepended);
    Record* record = PlaceRecord(block, static_cast<std::size_t>(size), TAG_SAME_LEVEL, false);
    if (record == nullptr) return;
    LevelWriter writer(record->Payload(), static_cast<std::size_t>(size));
    for (const Block* at = FollowingOrNull(other); at != nullptr; at = FollowingOrNull(*at)) {
        writer.Add(*at, block.capacity);
    }
    writer.End(aside);
}

}  // namespace

Message& Message::WrapBy(unsigned short domain, int id, const char* textTemplate) {
    Nest(BlockOf(*this), TAG_LOWER_LEVEL, domain, id, textTemplate);
    return *this;
}

Message& Message::PrependBy(unsigned short domain, int id, const char* textTemplate) {
    Nest(BlockOf(*this), TAG_SAME_LEVEL, domain, id, textTemplate);
    return *this;
}

Message& Message::PrependBy(const Message& other) {
    if (Holds(BlockOf(*this), &other)) {
        Message copy;
        const bool complete = CopyRecords(BlockOf(other), BlockOf(copy), kDeleted).complete;
        return complete ? PrependBy(copy) : *this;
    }
    if (IsEmpty()) return *this = other;
    PrependLevel(BlockOf(*this), BlockOf(other));
    return *this;
}

const Message* Message::GetLowerLevelMessageOrNULL() const {
    const Record* record = FindRecord(BlockOf(*this), TAG_LOWER_LEVEL);
    return record == nullptr ? nullptr : &record->As<Message>();
}

const Message* Message::GetSameLevelMessageOrNULL() const {
    const Record* record = FindRecord(BlockOf(*this), TAG_SAME_LEVEL);
    return record == nullptr ? nullptr : &record->As<Message>();
}

}  // namespace ZBase
