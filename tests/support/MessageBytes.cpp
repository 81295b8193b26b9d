#include "tests/support/MessageBytes.h"

#include <cstring>

namespace test {
namespace {

const char* FindBlockFlaw(const BlockView& block, bool nested);

bool IsTerminated(const unsigned char* text, std::size_t size) {
    return std::memchr(text, 0, size) != nullptr;
}

bool IsWideTerminated(const unsigned char* payload, std::size_t size) {
    for (std::size_t i = reinterpret_cast<std::uintptr_t>(payload) % 2; i + 2 <= size; i += 2)
        if (Load16(payload + i) == 0) return true;
    return false;
}

const char* FindRecordFlaw(const RecordView& record, bool nested) {
    const unsigned char* payload = record.Payload();
    const std::size_t size = record.PayloadSize();
    switch (record.tag) {
        case 0:
            return nested ? "deleted record in a nested block" : nullptr;
        case 1:
            return size == 8 ? nullptr : "header not 8 bytes";
        case 2:
        case 3:
            return IsTerminated(payload, size) ? nullptr : "text without end";
        case 4:
        case 5: {
            if (size < 16) return "nested block below 16 bytes";
            const BlockView block(payload);
            if (block.capacity != size) return "nested block not as large as its record";
            if (block.free != 0) return "free bytes in a nested block";
            if (block.next != nullptr) return "chain on a nested block";
            return FindBlockFlaw(block, true);
        }
        case 6:
            return size >= 4 && IsTerminated(payload + 2, size - 2) ? nullptr : "localized text without end";
        case 15:
            if (nested) return "wide text in a nested block";
            return size >= 4 && IsWideTerminated(payload, size) ? nullptr : "wide text without end";
        default:
            return "unknown tag";
    }
}

const char* FindBlockFlaw(const BlockView& block, bool nested) {
    if (block.capacity < 16) return "block below 16 bytes";
    if (block.free > block.capacity - 16) return "more free than there is";
    const std::uint32_t used = block.capacity - block.free;
    for (std::uint32_t offset = 16; offset != used;) {
        if (used - offset < 5) return "record head beyond the used part";
        const RecordView record = block.RecordAt(offset);
        if (record.length < 5 || record.length > used - offset) return "record beyond the used part";
        if (const char* flaw = FindRecordFlaw(record, nested)) return flaw;
        offset += record.length;
    }
    return nullptr;
}

}  // namespace

std::uint16_t Load16(const unsigned char* at) {
    return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

std::uint32_t Load32(const unsigned char* at) {
    return Load16(at) | static_cast<std::uint32_t>(Load16(at + 2)) << 16;
}

BlockView::BlockView(const void* block)
    : at(static_cast<const unsigned char*>(block)), capacity(Load32(at)), free(Load32(at + 4)) {
    const std::uint64_t address = Load32(at + 8) | static_cast<std::uint64_t>(Load32(at + 12)) << 32;
    next = reinterpret_cast<const unsigned char*>(address);
}

RecordView BlockView::RecordAt(std::uint32_t offset) const {
    if (offset >= capacity - free) return {};
    return {at + offset, Load32(at + offset), at[offset + 4]};
}

RecordView BlockView::Behind(const RecordView& record) const {
    return RecordAt(static_cast<std::uint32_t>(record.at - at) + record.length);
}

const char* FindFlaw(const void* message) {
    const char* flaw = nullptr;
    for (auto at = static_cast<const unsigned char*>(message); at != nullptr && flaw == nullptr;) {
        const BlockView block(at);
        flaw = FindBlockFlaw(block, false);
        at = block.next;
    }
    return flaw;
}

std::string Hex(const void* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i != size; ++i) {
        const unsigned char byte = static_cast<const unsigned char*>(bytes)[i];
        if (i != 0) text += ' ';
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string Layout(const void* message) {
    std::string text;
    for (auto at = static_cast<const unsigned char*>(message); at != nullptr; at = BlockView(at).next) {
        const BlockView block(at);
        if (!text.empty()) text += " | ";
        text += std::to_string(block.capacity) + "-" + std::to_string(block.free) + ":";
        for (RecordView record = block.First(); record.at != nullptr; record = block.Behind(record))
            text += " " + std::to_string(record.length) + "#" + std::to_string(record.tag);
    }
    return text;
}

std::size_t CountBlocks(const void* message) {
    std::size_t count = 0;
    for (auto at = static_cast<const unsigned char*>(message); at != nullptr; at = BlockView(at).next)
        ++count;
    return count;
}

}  // namespace test
