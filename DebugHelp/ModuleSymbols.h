#pragma once

#include <DebugHelp/ModuleFile.h>

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>

namespace DebugHelp {

// Addresses are those in the module's file.

struct Symbol {
    std::string name;  // demangled
    std::uint64_t start = 0;
    std::uint64_t size = 0;
    bool isThere = false;
};

struct Line {
    const std::string* file = nullptr;  // stays for good; null if there is no line
    std::uint32_t number = 0;
    std::uint64_t address = 0;  // where the line's code begins
};

/// The names of all source files. Lines point into it, and callers keep what they point to.
using FileNames = std::set<std::string>;

/// The symbols and lines of one module, on elfutils: the module's own tables, its separate debug file by
/// build id or link, the exported symbols of a stripped one. What was looked up once is kept.
class ModuleSymbols {
public:
    /// `places` are the directories in which debug files are looked for, in the form of elfutils; empty for
    /// the usual ones.
    ModuleSymbols(const LoadedModule& module, const std::string& places, FileNames& names);
    ~ModuleSymbols();
    ModuleSymbols(const ModuleSymbols&) = delete;
    ModuleSymbols& operator=(const ModuleSymbols&) = delete;

    const std::string& Path() const { return mFile.Path(); }

    /// Whether it is less than what a later try may give.
    bool IsProvisional() const { return mFile.IsForWantOfFiles(); }

    /// Null if the address lies in no symbol.
    const Symbol* FindSymbol(std::uint64_t address);
    const Line* FindLine(std::uint64_t address);

private:
    static int FindElf(Dwfl_Module* module, void** data, const char* name, Dwarf_Addr base, char** file,
                       Elf** elf);
    static int FindDebugInformation(Dwfl_Module* module, void** data, const char* name, Dwarf_Addr base,
                                    const char* file, const char* link, GElf_Word checksum, char** found);
    Symbol LookUpSymbol(std::uint64_t address) const;
    Line LookUpLine(std::uint64_t address);

    ModuleFile mFile;
    std::string mPlaces;
    char* mpPlaces;
    FileNames& mNames;  // held, not owned
    Dwfl_Callbacks mCallbacks{};
    Dwfl* mpDwfl = nullptr;
    Dwfl_Module* mpModule = nullptr;  // null if nothing could be read
    Dwarf_Addr mBias = 0;             // of addresses as elfutils has them
    std::unordered_map<std::uint64_t, Symbol> mSymbols;
    std::unordered_map<std::uint64_t, Line> mLines;
};

}  // namespace DebugHelp
