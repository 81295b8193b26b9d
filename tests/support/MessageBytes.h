#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace test {

/// Reads the bytes of a message without the library. Only the texts allocate.
struct RecordView {
    const unsigned char* at = nullptr;  // null behind the last record
    std::uint32_t length = 0;
    unsigned int tag = 0;

    const unsigned char* Payload() const { return at + 5; }
    std::uint32_t PayloadSize() const { return length - 5; }
};

struct BlockView {
    explicit BlockView(const void* block);

    const unsigned char* at;
    std::uint32_t capacity;
    std::uint32_t free;
    const unsigned char* next;

    /// The record at an offset into the block, and the one behind a record.
    RecordView RecordAt(std::uint32_t offset) const;
    RecordView First() const { return RecordAt(16); }
    RecordView Behind(const RecordView& record) const;
};

std::uint16_t Load16(const unsigned char* at);
std::uint32_t Load32(const unsigned char* at);

/// The first error in the bytes of a message, nested ones included; null if there is none.
const char* FindFlaw(const void* message);

/// Bytes as hexadecimal digits: "0d 00".
std::string Hex(const void* bytes, std::size_t size);

/// The blocks and records of a message, one after the other: "100-44: 13#1 20#2 7#3 | 116-0: 95#5" gives
/// capacity and free bytes of each block, and length and tag of each record.
std::string Layout(const void* message);

/// The number of blocks in the chain, the first included.
std::size_t CountBlocks(const void* message);

}  // namespace test
