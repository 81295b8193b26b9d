#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>

#include <cstddef>
#include <cstdint>

namespace ZBase {

using namespace detail;

namespace {

constexpr TagSet kNotPrepended{TAG_DELETED, TAG_SAME_LEVEL, TAG_WIDE_MESSAGE};

// The smallest block. Content that is swapped into it lies in its chain, and out of the way.
struct Aside : Block {
    Aside() { InitializeBlock(*this, sizeof(Block)); }
    ~Aside() { FreeBlockChain(*this); }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
};

// Where a text went that lay in the block itself when the content was put aside.
const char* FollowText(const char* text, const Block& block, const Aside& aside) {
    const auto offset = reinterpret_cast<std::uintptr_t>(text) - reinterpret_cast<std::uintptr_t>(&block);
    const bool moved = offset >= sizeof(Block) && offset < block.capacity;
    const Block* image = aside.next;
    return moved ? reinterpret_cast<const char*>(image->Bytes()) + offset : text;
}

void Nest(Block& block, ETag tag, unsigned short domain, int id, const char* textTemplate) {
    if (MessageOf(block).IsEmpty()) {
        PlaceHeaderAndTemplate(block, domain, id, textTemplate);
        return;
    }
    Aside aside;
    if (!SwapContents(aside, block)) return;
    PlaceHeaderAndTemplate(block, domain, id, FollowText(textTemplate, block, aside));
    NestCopy(aside, block, tag);
}

// Puts one message, without what follows it on its level, in front of the content of `block`.
void PrependOne(Block& block, const Block& other) {
    Aside aside;
    if (!SwapContents(aside, block)) return;
    CopyRecords(other, block, kNotPrepended);
    NestCopy(aside, block, TAG_SAME_LEVEL);
}

const Block* FollowingOrNull(const Block& block) {
    const Record* record = FindRecord(block, TAG_SAME_LEVEL);
    return record == nullptr ? nullptr : &record->As<Block>();
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

    // The last message on the level of `other` goes first. The way there is from nesting to nesting, so it is
    // gone in strides, each noted on the stack: neither depth nor memory sets a limit to the level.
    constexpr std::size_t kStride = 64;
    const Block* noted[kStride];
    std::size_t count = 0;
    for (const Block* at = &BlockOf(other); at != nullptr; at = FollowingOrNull(*at)) ++count;
    while (count != 0) {
        const std::size_t begin = (count - 1) / kStride * kStride;
        const Block* at = &BlockOf(other);
        for (std::size_t index = 0; index != count; ++index, at = FollowingOrNull(*at)) {
            if (index >= begin) noted[index - begin] = at;
        }
        for (; count != begin; --count) PrependOne(BlockOf(*this), *noted[count - 1 - begin]);
    }
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
