#include "RecordView.h"
#include "tools/zbase/terminal/Console.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

// The layout that is read here: a block is a header of 16 bytes (capacity, free, next block) and records back
// to back; a record is its length in 4 bytes, a tag, and a payload. All numbers are little-endian, at any
// address.

namespace {

using ZBase::Message;

constexpr std::size_t kBlockHeader = 16;
constexpr std::size_t kRecordHead = 5;

template <class Number>
Number Read(const unsigned char* at) {
    Number number;
    std::memcpy(&number, at, sizeof number);
    return number;
}

struct Block {
    std::uint32_t capacity;
    std::uint32_t free;
    const unsigned char* next;
};

Block ReadBlock(const unsigned char* at) {
    return {Read<std::uint32_t>(at), Read<std::uint32_t>(at + 4), Read<const unsigned char*>(at + 8)};
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '\n' ? "\\n" : std::string(1, c);
    return quoted + "\"";
}

std::string QuotedNarrow(const unsigned char* text) {
    return Quoted(reinterpret_cast<const char*>(text));
}

std::string QuotedWide(const unsigned char* payload) {
    const bool odd = reinterpret_cast<std::uintptr_t>(payload) % 2 != 0;
    return Quoted(Narrow(reinterpret_cast<const unsigned short*>(payload + (odd ? 1 : 0))));
}

std::string DescribeHeader(const unsigned char* payload) {
    return "id " + std::to_string(Read<std::int32_t>(payload)) + ", domain " +
           std::to_string(Read<std::uint16_t>(payload + 4)) + ", numbers in base " +
           std::to_string(payload[6]) + ", width " + std::to_string(payload[7]);
}

struct Kind {
    unsigned char tag;
    const char* name;
    std::string (*describe)(const unsigned char* payload);
};

const Kind kKinds[] = {
    {0, "deleted", nullptr},
    {1, "header", DescribeHeader},
    {2, "template", QuotedNarrow},
    {3, "parameter", QuotedNarrow},
    {4, "same level", nullptr},
    {5, "lower level", nullptr},
    {6, "localized text",
     [](const unsigned char* payload) {
         return "language " + std::to_string(Read<std::uint16_t>(payload)) + " " + QuotedNarrow(payload + 2);
     }},
    {15, "wide message", QuotedWide},
};

const Kind& KindOf(unsigned char tag) {
    for (const Kind& kind : kKinds) {
        if (kind.tag == tag) return kind;
    }
    return kKinds[0];
}

std::string Column(std::string text, std::size_t width) {
    if (text.size() < width) text.insert(0, width - text.size(), ' ');
    return text;
}

void PrintBlocks(const unsigned char* block, const std::string& indent) {
    for (bool first = true; block != nullptr; first = false) {
        const Block head = ReadBlock(block);
        Print(indent + Styled(first ? "block" : "heap block", "2") + " of " + std::to_string(head.capacity) +
              " bytes, " + std::to_string(head.free) + " free\n");
        const std::size_t used = head.capacity - head.free;
        for (std::size_t offset = kBlockHeader; offset < used;) {
            const unsigned char* record = block + offset;
            const auto length = Read<std::uint32_t>(record);
            const Kind& kind = KindOf(record[4]);
            const unsigned char* payload = record + kRecordHead;
            Print(indent + Column(std::to_string(offset), 6) + Column(std::to_string(length), 6) + "  " +
                  Styled(kind.name, "36") + (kind.describe == nullptr ? "" : "  " + kind.describe(payload)) +
                  "\n");
            if (kind.tag == 4 || kind.tag == 5) PrintBlocks(payload, indent + "              ");
            offset += length;
        }
        block = head.next;
    }
}

// Calls `visit` with the payload of each record of a tag.
template <class Visitor>
void ForEachRecord(const Message& message, unsigned char tag, Visitor visit) {
    for (auto* block = reinterpret_cast<const unsigned char*>(&message); block != nullptr;) {
        const Block head = ReadBlock(block);
        const std::size_t used = head.capacity - head.free;
        for (std::size_t offset = kBlockHeader; offset < used;
             offset += Read<std::uint32_t>(block + offset)) {
            if (block[offset + 4] == tag) visit(reinterpret_cast<const char*>(block + offset + kRecordHead));
        }
        block = head.next;
    }
}

}  // namespace

std::vector<LocalizedText> LocalizedTexts(const Message& message) {
    std::vector<LocalizedText> texts;
    ForEachRecord(message, 6, [&](const char* payload) {
        texts.push_back({Read<std::uint16_t>(reinterpret_cast<const unsigned char*>(payload)), payload + 2});
    });
    return texts;
}

std::string Indented(std::string_view lines) {
    std::string indented;
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
        indented += "  ";
        indented += lines.substr(at, end - at);
        at = end;
    }
    return indented;
}

void PrintTree(const Message& message) {
    Print(Indented(ZBase::FormatTree(message, {.colour = IsColoured()}).c_str()));
}

void PrintRecords(const Message& message) {
    PrintBlocks(reinterpret_cast<const unsigned char*>(&message), "  ");
}
