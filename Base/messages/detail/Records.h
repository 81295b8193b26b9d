#pragma once

// A message is a sequence of tagged records in a chain of blocks. The first block is the `Message` itself, or
// memory that its holder supplied, or the payload of a record that nests it; the others are from the global
// heap.
//
//   block   capacity 4 | free 4 | next 8 | records, back to back | free bytes
//   record  length 4 | tag 1 | payload of length - 5 bytes, its meaning by the tag
//
// Nothing is aligned: a nested block starts five bytes into a record, and a message may be at any address. So
// every number is read and written through `Unaligned`, in little-endian order, and wide text starts at the
// first even address in its payload. The only address in a block is `next`: all else can be moved as bytes,
// except wide text, which is shifted when it moves from an odd address to an even one. A record never changes
// its length and a block never moves; a deleted record gets tag 0, and its space is reclaimed when the
// message is copied. A nested block is one record of exactly its size: nothing free, and no next block.

#include <Base/messages/Message.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <type_traits>

namespace ZBase::detail {

/// A number at any address.
template <class T>
class Unaligned {
public:
    operator T() const {
        T value;
        std::memcpy(&value, mBytes, sizeof value);
        return value;
    }
    Unaligned& operator=(T value) {
        std::memcpy(mBytes, &value, sizeof value);
        return *this;
    }

private:
    unsigned char mBytes[sizeof(T)];
};

enum ETag : unsigned char {
    TAG_DELETED = 0,         // anything
    TAG_HEADER = 1,          // `Header`
    TAG_TEMPLATE = 2,        // text with terminator
    TAG_PARAMETER = 3,       // text with terminator
    TAG_SAME_LEVEL = 4,      // `Block` of the message that follows on this level
    TAG_LOWER_LEVEL = 5,     // `Block` of the message that this one wraps
    TAG_LOCALIZED_TEXT = 6,  // `LocalizedText`
    TAG_WIDE_MESSAGE = 15    // wide text with terminator from the first even address, and up to 2 bytes more
};

struct Record {
    Unaligned<std::uint32_t> length;  // bytes, with these five
    unsigned char tag;

    unsigned char* Payload() { return reinterpret_cast<unsigned char*>(this) + sizeof(Record); }
    const unsigned char* Payload() const {
        return reinterpret_cast<const unsigned char*>(this) + sizeof(Record);
    }
    std::uint32_t PayloadSize() const { return length - static_cast<std::uint32_t>(sizeof(Record)); }

    template <class T>
    T& As() {
        return *reinterpret_cast<T*>(Payload());
    }
    template <class T>
    const T& As() const {
        return *reinterpret_cast<const T*>(Payload());
    }
    const char* Text() const { return reinterpret_cast<const char*>(Payload()); }
};

struct Block {
    Unaligned<std::uint32_t> capacity;  // bytes, with this header
    Unaligned<std::uint32_t> free;      // bytes unused at the end
    Unaligned<Block*> next;             // owned; null in the last block

    unsigned char* Bytes() { return reinterpret_cast<unsigned char*>(this); }
    const unsigned char* Bytes() const { return reinterpret_cast<const unsigned char*>(this); }
};

struct Header {
    Unaligned<std::int32_t> id;
    Unaligned<std::uint16_t> domain;
    unsigned char radix;  // of number parameters: 16, or anything else for 10
    unsigned char width;  // of hexadecimal ones: digits at least
};

struct LocalizedText {
    Unaligned<std::uint16_t> language;

    const char* Text() const { return reinterpret_cast<const char*>(this + 1); }
};

inline constexpr unsigned int kStockCapacity = 100;
inline constexpr std::size_t kMaxPayloadSize =
    std::numeric_limits<std::uint32_t>::max() - sizeof(Block) - sizeof(Record);
inline constexpr unsigned char kDefaultRadix = 10;
inline constexpr unsigned char kDefaultWidth = 0;

static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(Record) == 5 && alignof(Record) == 1);
static_assert(offsetof(Record, length) == 0 && offsetof(Record, tag) == 4);
static_assert(sizeof(Block) == Message::MIN_SIZE && alignof(Block) == 1);
static_assert(offsetof(Block, capacity) == 0 && offsetof(Block, free) == 4 && offsetof(Block, next) == 8);
static_assert(sizeof(Header) == 8 && alignof(Header) == 1);
static_assert(offsetof(Header, id) == 0 && offsetof(Header, domain) == 4);
static_assert(offsetof(Header, radix) == 6 && offsetof(Header, width) == 7);
static_assert(sizeof(LocalizedText) == 2 && alignof(LocalizedText) == 1);
static_assert(sizeof(Message) == kStockCapacity);

/// A message and its first block are the same bytes.
inline Block& BlockOf(Message& message) {
    return reinterpret_cast<Block&>(message);
}
inline const Block& BlockOf(const Message& message) {
    return reinterpret_cast<const Block&>(message);
}
inline Message& MessageOf(Block& block) {
    return reinterpret_cast<Message&>(block);
}
inline const Message& MessageOf(const Block& block) {
    return reinterpret_cast<const Message&>(block);
}

/// Tags that an operation leaves out.
class TagSet {
public:
    constexpr TagSet(std::initializer_list<ETag> tags) {
        for (const ETag tag : tags) mBits |= 1u << tag;
    }
    constexpr bool Contains(unsigned char tag) const { return tag < 32 && (mBits >> tag & 1u) != 0; }

private:
    std::uint32_t mBits = 0;
};

inline constexpr TagSet kDeleted{TAG_DELETED};
inline constexpr TagSet kNotNested{TAG_DELETED, TAG_WIDE_MESSAGE};  // wide text would not be shifted

/// The place of a record: its block, counted along the chain, and its offset in that. Additions to a message
/// don't change places, at whatever address its blocks are.
struct Place {
    std::uint64_t block = 0;
    std::uint32_t offset = 0;  // 0 is nowhere

    bool operator==(const Place&) const = default;
};

/// Visits all records, those of tag `TAG_DELETED` among them. `AnyBlock` is `Block` or `const Block`.
template <class AnyBlock>
class RecordWalker {
public:
    using AnyRecord = std::conditional_t<std::is_const_v<AnyBlock>, const Record, Record>;
    using AnyByte = std::conditional_t<std::is_const_v<AnyBlock>, const unsigned char, unsigned char>;

    explicit RecordWalker(AnyBlock& first) { Enter(first); }

    /// Continues after a record of `block`; at its beginning if `record` is null.
    RecordWalker(AnyBlock& block, AnyRecord* record) {
        Enter(block);
        if (record != nullptr) mpNext = reinterpret_cast<AnyByte*>(record) + record->length;
    }

    /// The next record, or null behind the last one.
    AnyRecord* Next() {
        while (mpNext >= mpEnd) {
            AnyBlock* next = mpBlock->next;
            if (next == nullptr) return nullptr;
            ++mBlockNumber;
            Enter(*next);
        }
        auto* record = reinterpret_cast<AnyRecord*>(mpNext);
        mpNext += record->length;
        return record;
    }

    /// The block that the walk is in.
    AnyBlock& CurrentBlock() const { return *mpBlock; }

    /// The place of a record of the current block.
    Place PlaceOf(const Record& record) const {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
        return {mBlockNumber, static_cast<std::uint32_t>(bytes - mpBlock->Bytes())};
    }

private:
    void Enter(AnyBlock& block) {
        mpBlock = &block;
        mpNext = block.Bytes() + sizeof(Block);
        mpEnd = block.Bytes() + (block.capacity - block.free);
    }

    AnyBlock* mpBlock;
    std::uint64_t mBlockNumber = 0;  // in the chain
    AnyByte* mpNext;                 // the next record in the block
    AnyByte* mpEnd;                  // the end of the records in the block when it was entered
};

/// The first record of a tag, or null.
template <class AnyBlock>
auto* FindRecord(AnyBlock& block, ETag tag) {
    RecordWalker<AnyBlock> walker(block);
    auto* record = walker.Next();
    while (record != nullptr && record->tag != tag) record = walker.Next();
    return record;
}

/// The payload size of a localized text of `length` octets: one more than needed; the format has it so.
constexpr std::size_t LocalizedTextPayloadSize(std::size_t length) {
    return length + 4;
}

/// Lays out an empty block.
inline void InitializeBlock(Block& block, std::uint32_t capacity) {
    block.capacity = capacity;
    block.free = capacity - static_cast<std::uint32_t>(sizeof(Block));
    block.next = nullptr;
}

/// Takes `size` free bytes of a block for a record.
inline Record* UseBlock(Block& block, std::uint32_t size, ETag tag) {
    auto* record = reinterpret_cast<Record*>(block.Bytes() + (block.capacity - block.free));
    block.free = block.free - size;
    record->length = size;
    record->tag = tag;
    return record;
}

/// As `PlaceRecord`, for any chain.
Record* PlaceRecordInChain(Block& first, std::size_t payloadSize, ETag tag, bool atEnd);

/// Adds a record whose payload the caller writes: in the first block with enough free bytes, or with `atEnd`
/// in the last block, where the order of records matters. A message grows only here. Null, with the chain
/// unchanged, when there is no memory or the sizes would not fit in 32 bits.
inline Record* PlaceRecord(Block& first, std::size_t payloadSize, ETag tag, bool atEnd) {
    // Most messages are one block with enough space.
    if (first.next == nullptr && payloadSize <= kMaxPayloadSize &&
        payloadSize + sizeof(Record) <= first.free) {
        return UseBlock(first, static_cast<std::uint32_t>(payloadSize + sizeof(Record)), tag);
    }
    return PlaceRecordInChain(first, payloadSize, tag, atEnd);
}

/// The same for a text and its terminator.
Record* PlaceText(Block& first, std::string_view text, ETag tag, bool atEnd);

/// Appends a parameter, or an empty one when there is no memory for its text. Waits until that one is stored;
/// meanwhile other threads run.
void PlaceParameter(Block& first, std::string_view text);

/// Adds a header with the default number format and then, if the header was stored, the template, if any.
/// False when the header could not be stored.
bool PlaceHeader(Block& first, unsigned short domain, int id);
void PlaceHeaderAndTemplate(Block& first, unsigned short domain, int id, const char* textTemplate);

/// Frees all blocks after the first, whose header is not changed.
void FreeBlocks(Block* next);
inline void FreeBlockChain(Block& first) {
    if (first.next != nullptr) FreeBlocks(first.next);
}

/// Bytes in all records whose tag is not excluded.
std::uint64_t SumRecordLengths(const Block& source, TagSet excluded);

struct CopyResult {
    bool complete = true;          // every record was stored
    Record* lowerLevel = nullptr;  // the last copy of each tag
    Record* sameLevel = nullptr;
};

/// Appends copies of all records whose tag is not excluded, in their order, up to the first that can't be
/// stored.
CopyResult CopyRecords(const Block& source, Block& destination, TagSet excluded);

/// The same without deleted records, into an empty block.
void CopyContent(const Block& source, Block& destination);

/// Nests a copy of the content of `source` into `parent`, in one record. Null when it can't be stored.
Record* NestCopy(const Block& source, Block& parent, ETag tag);

/// Exchanges the contents; the capacities stay. Between blocks of different capacity it takes one allocation,
/// after which the smaller one has all of its content in the chain; false, with both unchanged, when it
/// fails.
bool SwapContents(Block& one, Block& other);

/// Moves the content into an empty block: with the chain of `from`, if the records in the first block fit in
/// that of `to`; else, and where they are nested, by copying them. Without memory for all of the copies the
/// content stays in `from`, and `to` has the records copied so far.
void TakeContent(Block& from, Block& to);

/// Empties `block`, whose content is then in the chain of `aside`, an empty block of the smallest size. Takes
/// at most one allocation, as large as the content of the block itself, which keeps its offsets there; false,
/// with both unchanged, when it fails. Wide text may be one byte off then.
bool PutAside(Block& block, Block& aside);

/// Whether an address is in one of the blocks.
bool Holds(const Block& first, const void* address);

inline bool IsOdd(const void* address) {
    return (reinterpret_cast<std::uintptr_t>(address) & 1u) != 0;
}

/// The wide text of a record of `TAG_WIDE_MESSAGE`.
inline const unsigned short* WideText(const Record& record) {
    return reinterpret_cast<const unsigned short*>(record.Payload() + (IsOdd(record.Payload()) ? 1 : 0));
}
void WriteWideText(Record& record, const unsigned short* text, std::size_t length);

/// The payload size that `length` units need at any address.
constexpr std::size_t WideTextPayloadSize(std::size_t length) {
    return 2 * length + 4;
}

}  // namespace ZBase::detail
