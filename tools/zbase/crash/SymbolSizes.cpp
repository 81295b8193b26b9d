#include "SymbolSizes.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string_view>

namespace {

// Of a file in the format ELF for 64 bits.
struct ElfHeader {
    char magic[4];
    unsigned char width;
    unsigned char others[27];
    std::uint64_t segments;  // offsets of the two tables
    std::uint64_t sections;
    std::uint32_t flags;
    std::uint16_t sizes[2];
    std::uint16_t segmentCount;
    std::uint16_t sectionSize;
    std::uint16_t sectionCount;
    std::uint16_t names;
};
struct ElfSegment {
    std::uint32_t type;
    std::uint32_t flags;
    std::uint64_t offset;
    std::uint64_t address;
    std::uint64_t others[4];
};
struct ElfSection {
    std::uint32_t name;
    std::uint32_t type;
    std::uint64_t flags;
    std::uint64_t address;
    std::uint64_t offset;
    std::uint64_t size;
    std::uint64_t others[3];
};
struct ElfSymbol {
    std::uint32_t name;
    unsigned char info;
    unsigned char other;
    std::uint16_t section;
    std::uint64_t address;
    std::uint64_t size;
};
static_assert(sizeof(ElfHeader) == 64 && sizeof(ElfSegment) == 56 && sizeof(ElfSection) == 64 &&
              sizeof(ElfSymbol) == 24);
constexpr char kElfMagic[] = "\177ELF";
constexpr unsigned char kElf64 = 2;
constexpr std::uint32_t kLoadedSegment = 1;
constexpr std::uint32_t kSymbolTable = 2;
constexpr std::uint32_t kDynamicSymbols = 11;
constexpr std::uint16_t kUndefined = 0;

using Sizes = std::map<std::uint64_t, std::uint64_t>;  // of symbols, by their address in the loaded module

/// Reads `count` records from `offset` on, up to the end of the file.
template <class Record, class Visitor>
void VisitRecords(const std::string& file, std::uint64_t offset, std::uint64_t count, Visitor visit) {
    for (std::uint64_t i = 0; i != count; ++i, offset += sizeof(Record)) {
        if (offset > file.size() || file.size() - offset < sizeof(Record)) return;
        Record record;
        std::memcpy(&record, file.data() + offset, sizeof record);
        visit(record);
    }
}

Sizes ReadSizes(const std::string& path) {
    std::ifstream input(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(input), {}};
    Sizes sizes;
    ElfHeader header{};
    if (file.size() < sizeof header) return sizes;
    std::memcpy(&header, file.data(), sizeof header);
    if (std::memcmp(header.magic, kElfMagic, sizeof header.magic) != 0 || header.width != kElf64)
        return sizes;
    std::uint64_t bias = UINT64_MAX;
    VisitRecords<ElfSegment>(file, header.segments, header.segmentCount, [&](const ElfSegment& segment) {
        if (segment.type == kLoadedSegment && bias == UINT64_MAX) bias = segment.address;
    });
    VisitRecords<ElfSection>(file, header.sections, header.sectionCount, [&](const ElfSection& section) {
        if (section.type != kSymbolTable && section.type != kDynamicSymbols) return;
        VisitRecords<ElfSymbol>(file, section.offset, section.size / sizeof(ElfSymbol),
                                [&](const ElfSymbol& symbol) {
                                    if (symbol.section == kUndefined || symbol.size == 0) return;
                                    std::uint64_t& size = sizes[symbol.address - bias];
                                    if (symbol.size > size) size = symbol.size;
                                });
    });
    return sizes;
}

}  // namespace

std::string WithSymbolSizes(const std::string& symbols, const std::string& module) {
    const Sizes sizes = ReadSizes(module);
    if (sizes.empty()) return symbols;
    std::string result;
    std::istringstream lines(symbols);
    for (std::string line; std::getline(lines, line);) {
        // "PUBLIC [m ]<address> <parameters> <name>" becomes "FUNC [m ]<address> <size> <parameters> <name>"
        constexpr std::string_view kPublic = "PUBLIC ";
        if (line.starts_with(kPublic)) {
            const std::size_t start =
                line.compare(kPublic.size(), 2, "m ") == 0 ? kPublic.size() + 2 : kPublic.size();
            std::uint64_t address = 0;
            const char* const end =
                std::from_chars(line.c_str() + start, line.c_str() + line.size(), address, 16).ptr;
            const auto size = sizes.find(address);
            if (size == sizes.end()) continue;
            char digits[20];
            std::snprintf(digits, sizeof digits, " %llx", static_cast<unsigned long long>(size->second));
            line.insert(static_cast<std::size_t>(end - line.c_str()), digits);
            line.replace(0, kPublic.size(), "FUNC ");
        }
        result.append(line).append("\n");
    }
    return result;
}
