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
    const std::string* file = nullptr;  // never freed; null without a line
    std::uint32_t number = 0;
    std::uint64_t address = 0;  // the start of the line's code
};

/// The names of all source files. Lines point into it, and callers keep the pointers.
using FileNames = std::set<std::string>;

/// The symbols and lines of one module, by elfutils: the module's own tables, its separate debug file by
/// build id or link, the exported symbols of a stripped one. Results are cached.
class ModuleSymbols {
public:
    /// `places` are the directories to search for debug files, in the form of elfutils; empty for the default
    /// ones.
    ModuleSymbols(const LoadedModule& module, const std::string& places, FileNames& names);
    ~ModuleSymbols();
    ModuleSymbols(const ModuleSymbols&) = delete;
    ModuleSymbols& operator=(const ModuleSymbols&) = delete;

    const std::string& Path() const { return mFile.Path(); }

    /// Whether a later try may find more.
    bool IsProvisional() const { return mFile.IsForWantOfFiles(); }

    /// Null if the address is in no symbol.
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
    Dwarf_Addr mBias = 0;             // between addresses here and in elfutils
    std::unordered_map<std::uint64_t, Symbol> mSymbols;
    std::unordered_map<std::uint64_t, Line> mLines;
};

}  // namespace DebugHelp
