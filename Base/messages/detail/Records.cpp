#include <Base/messages/detail/Records.h>
#include <Base/platform/os/processes/Threads.h>

#include <algorithm>
#include <new>

namespace ZBase::detail {
namespace {

unsigned char* WideTextStart(Record& record) {
    return reinterpret_cast<unsigned char*>(const_cast<unsigned short*>(WideText(record)));
}

Block* NewBlock(std::uint32_t capacity) {
    void* memory = ::operator new(capacity, std::nothrow);
    if (memory == nullptr) return nullptr;
    Block* block = static_cast<Block*>(memory);
    InitializeBlock(*block, capacity);
    return block;
}

void CopyWideText(const Record& source, Record& destination) {
    const std::size_t maxSize = source.PayloadSize() - WideTextPayloadSize(0);
    const auto* text = reinterpret_cast<const unsigned char*>(WideText(source));
    std::size_t size = 0;
    while (size < maxSize && (text[size] | text[size + 1]) != 0) size += 2;
    std::memcpy(WideTextStart(destination), text, size);
    std::memset(WideTextStart(destination) + size, 0, 2);
}

// Moves the wide text in `block`, whose bytes were copied here from `from`, to an even address again.
void ShiftWideText(Block& block, const void* from) {
    if (IsOdd(&block) == IsOdd(from)) return;
    const std::uint32_t used = block.capacity - block.free;
    for (std::uint32_t at = sizeof(Block); at < used;) {
        Record& record = *reinterpret_cast<Record*>(block.Bytes() + at);
        at += record.length;
        if (record.tag != TAG_WIDE_MESSAGE) continue;
        unsigned char* start = WideTextStart(record);
        unsigned char* movedStart = start == record.Payload() ? start + 1 : record.Payload();
        std::memmove(start, movedStart, record.PayloadSize() - 1);
    }
}

}  // namespace

Record* PlaceRecordInChain(Block& first, std::size_t payloadSize, ETag tag, bool atEnd) {
    if (payloadSize > kMaxPayloadSize) return nullptr;
    const auto size = static_cast<std::uint32_t>(payloadSize + sizeof(Record));
    Block* block = &first;
    for (Block* next = block->next; next != nullptr; next = block->next) {
        if (!atEnd && block->free >= size) return UseBlock(*block, size, tag);
        block = next;
    }
    if (block->free < size) {
        const auto needed = static_cast<std::uint32_t>(size + sizeof(Block));
        Block* added = NewBlock(std::max(needed, kStockCapacity));
        if (added == nullptr) return nullptr;
        block->next = added;
        block = added;
    }
    return UseBlock(*block, size, tag);
}

Record* PlaceText(Block& first, std::string_view text, ETag tag, bool atEnd) {
    Record* record = PlaceRecord(first, text.size() + 1, tag, atEnd);
    if (record == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(record->Payload(), text.data(), text.size());
    record->Payload()[text.size()] = 0;
    return record;
}

void PlaceParameter(Block& first, std::string_view text) {
    constexpr unsigned int kYields = 100;
    if (PlaceText(first, text, TAG_PARAMETER, true) != nullptr) return;
    // A parameter is never left out, or the later ones would change their numbers. The thread that could free
    // memory may have a lower priority, and then runs only while this one sleeps.
    for (unsigned int tries = 0; PlaceText(first, "", TAG_PARAMETER, true) == nullptr;) {
        if (tries == kYields) {
            os::SleepMilliseconds(1);
        } else {
            ++tries;
            os::YieldThread();
        }
    }
}

bool PlaceHeader(Block& first, unsigned short domain, int id) {
    Record* record = PlaceRecord(first, sizeof(Header), TAG_HEADER, false);
    if (record == nullptr) return false;
    Header& header = record->As<Header>();
    header.id = id;
    header.domain = domain;
    header.radix = kDefaultRadix;
    header.width = kDefaultWidth;
    return true;
}

void PlaceHeaderAndTemplate(Block& first, unsigned short domain, int id, const char* textTemplate) {
    if (PlaceHeader(first, domain, id) && textTemplate != nullptr)
        PlaceText(first, textTemplate, TAG_TEMPLATE, false);
}

void FreeBlocks(Block* next) {
    while (next != nullptr) {
        Block* const block = next;
        next = block->next;
        ::operator delete(block);
    }
}

std::uint64_t SumRecordLengths(const Block& source, TagSet excluded) {
    std::uint64_t sum = 0;
    RecordWalker walker(source);
    while (const Record* record = walker.Next()) {
        if (!excluded.Contains(record->tag)) sum += record->length;
    }
    return sum;
}

CopyResult CopyRecords(const Block& source, Block& destination, TagSet excluded) {
    CopyResult result;
    Block* last = &destination;  // saves walking the whole chain for each record
    RecordWalker walker(source);
    while (const Record* record = walker.Next()) {
        if (excluded.Contains(record->tag)) continue;
        const auto tag = static_cast<ETag>(record->tag);
        Record* copy = PlaceRecord(*last, record->PayloadSize(), tag, true);
        if (copy == nullptr) {
            result.complete = false;
            break;
        }
        if (tag == TAG_WIDE_MESSAGE) {
            CopyWideText(*record, *copy);
        } else {
            std::memcpy(copy->Payload(), record->Payload(), record->PayloadSize());
        }
        if (tag == TAG_LOWER_LEVEL) result.lowerLevel = copy;
        if (tag == TAG_SAME_LEVEL) result.sameLevel = copy;
        while (last->next != nullptr) last = last->next;
    }
    return result;
}

void CopyContent(const Block& source, Block& destination) {
    const std::uint32_t used = source.capacity - source.free;
    bool isPlain = source.next == nullptr && used <= destination.capacity;
    for (std::uint32_t at = sizeof(Block); isPlain && at < used;) {
        const Record& record = *reinterpret_cast<const Record*>(source.Bytes() + at);
        isPlain = record.tag != TAG_DELETED && record.tag != TAG_WIDE_MESSAGE;
        at += record.length;
    }
    if (!isPlain) {
        CopyRecords(source, destination, kDeleted);
        return;
    }
    std::memcpy(destination.Bytes() + sizeof(Block), source.Bytes() + sizeof(Block), used - sizeof(Block));
    destination.free = destination.capacity - used;
}

Record* NestCopy(const Block& source, Block& parent, ETag tag) {
    const std::uint64_t total = SumRecordLengths(source, kNotNested);
    if (total > kMaxPayloadSize) return nullptr;
    const auto capacity = static_cast<std::size_t>(total) + sizeof(Block);
    Record* record = PlaceRecord(parent, capacity, tag, false);
    if (record == nullptr) return nullptr;
    Block& nested = record->As<Block>();
    InitializeBlock(nested, static_cast<std::uint32_t>(capacity));
    CopyRecords(source, nested, kNotNested);
    return record;
}

bool SwapContents(Block& one, Block& other) {
    const std::uint32_t capacity = one.capacity;
    if (capacity == other.capacity) {
        if (&one == &other) return true;
        std::swap_ranges(one.Bytes(), one.Bytes() + capacity, other.Bytes());
        ShiftWideText(one, &other);
        ShiftWideText(other, &one);
        return true;
    }
    Block& large = capacity > other.capacity ? one : other;
    Block& small = capacity > other.capacity ? other : one;
    const std::uint32_t difference = large.capacity - small.capacity;
    Block* image = NewBlock(large.capacity);
    if (image == nullptr) return false;
    std::memcpy(image->Bytes(), large.Bytes(), large.capacity);
    ShiftWideText(*image, &large);
    std::memcpy(large.Bytes(), small.Bytes(), small.capacity);
    large.capacity = large.capacity + difference;
    large.free = large.free + difference;
    ShiftWideText(large, &small);
    InitializeBlock(small, small.capacity);
    small.next = image;
    return true;
}

void TakeContent(Block& from, Block& to) {
    if (&from == &to) return;
    const std::uint32_t used = from.capacity - from.free;
    if (used > to.capacity) {
        if (CopyRecords(from, to, kDeleted).complete) MessageOf(from).Clear();
        return;
    }
    std::memcpy(to.Bytes() + sizeof(Block), from.Bytes() + sizeof(Block), used - sizeof(Block));
    to.free = to.capacity - used;
    to.next = from.next;
    ShiftWideText(to, &from);
    InitializeBlock(from, from.capacity);
}

bool PutAside(Block& block, Block& aside) {
    const std::uint32_t used = block.capacity - block.free;
    aside.next = block.next;
    if (used != sizeof(Block)) {
        Block* image = NewBlock(used);
        if (image == nullptr) {
            aside.next = nullptr;
            return false;
        }
        std::memcpy(image->Bytes() + sizeof(Block), block.Bytes() + sizeof(Block), used - sizeof(Block));
        image->free = 0;
        image->next = block.next;
        aside.next = image;
    }
    InitializeBlock(block, block.capacity);
    return true;
}

bool Holds(const Block& first, const void* address) {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    for (const Block* block = &first; block != nullptr; block = block->next) {
        const auto start = reinterpret_cast<std::uintptr_t>(block);
        if (place >= start && place - start < block->capacity) return true;
    }
    return false;
}

void WriteWideText(Record& record, const unsigned short* text, std::size_t length) {
    unsigned char* start = WideTextStart(record);
    std::memmove(start, text, 2 * length);
    std::memset(start + 2 * length, 0, 2);
}

}  // namespace ZBase::detail
