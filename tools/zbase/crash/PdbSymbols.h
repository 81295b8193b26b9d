#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// What a PDB file tells of the functions of an image of 64-bit Windows. Places in the image are given by
// their section, counted from 1, and the offset there.

/// By what an image and its PDB file know each other.
struct PdbIdentity {
    std::array<char, 16> guid{};
    std::uint32_t age = 0;

    bool operator==(const PdbIdentity&) const = default;
};

struct PdbLine {
    std::uint32_t offset;
    std::uint32_t size;  // octets of code
    std::uint32_t number;
    std::size_t file;  // in the table of files
};

struct PdbFunction {
    std::uint16_t section;
    std::uint32_t offset;
    std::uint32_t size;
    std::string name;
    std::vector<PdbLine> lines;  // by their offsets
};

/// A function that is known by its name alone.
struct PdbName {
    std::uint16_t section;
    std::uint32_t offset;
    std::string name;  // as the linker has it
};

struct PdbSymbols {
    std::vector<std::string> files;
    std::vector<PdbFunction> functions;
    std::vector<PdbName> names;
};

/// Nothing of another image's file; of a damaged one what can be read, in memory of a few times its size.
PdbSymbols ReadPdb(const std::string& content, const PdbIdentity& identity);
