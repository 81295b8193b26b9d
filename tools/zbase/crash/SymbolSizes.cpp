#include "SymbolSizes.h"

#include <elf.h>
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
    Elf64_Ehdr header{};
    if (file.size() < sizeof header) return sizes;
    std::memcpy(&header, file.data(), sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64)
        return sizes;
    std::uint64_t bias = UINT64_MAX;
    VisitRecords<Elf64_Phdr>(file, header.e_phoff, header.e_phnum, [&](const Elf64_Phdr& segment) {
        if (segment.p_type == PT_LOAD && bias == UINT64_MAX) bias = segment.p_vaddr;
    });
    VisitRecords<Elf64_Shdr>(file, header.e_shoff, header.e_shnum, [&](const Elf64_Shdr& section) {
        if (section.sh_type != SHT_SYMTAB && section.sh_type != SHT_DYNSYM) return;
        VisitRecords<Elf64_Sym>(file, section.sh_offset, section.sh_size / sizeof(Elf64_Sym),
                                [&](const Elf64_Sym& symbol) {
                                    if (symbol.st_shndx == SHN_UNDEF || symbol.st_size == 0) return;
                                    std::uint64_t& size = sizes[symbol.st_value - bias];
                                    if (symbol.st_size > size) size = symbol.st_size;
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
