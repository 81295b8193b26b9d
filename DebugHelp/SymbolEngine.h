#pragma once

#include <elfutils/libdwfl.h>

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

namespace DebugHelp {

struct Symbol {
    std::string name;         // demangled; empty if there is none
    std::uint64_t start = 0;  // 0 if there is none
    std::uint64_t size = 0;
};

struct Line {
    const std::string* file = nullptr;  // stays for good; null if there is no line
    std::uint32_t number = 0;
    std::uint64_t address = 0;  // where the line's code begins
};

struct Module {
    std::uint64_t base;
    std::uint64_t size;
    const char* path;  // stays until modules are unloaded
};

/// The symbols of this process's modules, on elfutils: the module's own tables, its separate debug file by
/// build id or link, the exported symbols of a stripped one. What was looked up once is kept until a module
/// is unloaded. Modules that are loaded later are found.
class SymbolEngine {
public:
    ~SymbolEngine();

    /// Begins with the modules of the process; true if it is begun, or was.
    bool Begin();
    void End();
    bool IsBegun() const { return mIsBegun; }

    /// Null if the address lies in no symbol.
    const Symbol* FindSymbol(std::uint64_t address);
    const Line* FindLine(std::uint64_t address);
    bool FindModule(std::uint64_t address, Module& module);

    template <class Visitor>
    void VisitModules(Visitor visitor);

    /// Directories in which debug files are looked for, in the form of elfutils; empty for the usual ones.
    std::string searchPath;

private:
    static Module Describe(Dwfl_Module* module);
    Dwfl_Module* ModuleAt(std::uint64_t address) const;
    Symbol LookUpSymbol(std::uint64_t address) const;
    Line LookUpLine(std::uint64_t address);
    bool Open();
    void Close();
    bool Report();
    void Refresh();

    Dwfl_Callbacks mCallbacks{};
    char* mpSearchPath = nullptr;
    Dwfl* mpDwfl = nullptr;  // null while the modules can't be read, too
    bool mIsBegun = false;
    unsigned long long mLoads = 0;  // of the process, when its modules were read
    unsigned long long mUnloads = 0;
    std::unordered_map<std::uint64_t, Symbol> mSymbols;
    std::unordered_map<std::uint64_t, Line> mLines;
    std::set<std::string> mFiles;
};

template <class Visitor>
void SymbolEngine::VisitModules(Visitor visitor) {
    Refresh();
    if (mpDwfl == nullptr) return;
    const auto visit = [](Dwfl_Module* module, void**, const char*, Dwarf_Addr, void* argument) -> int {
        return (*static_cast<Visitor*>(argument))(Describe(module)) ? DWARF_CB_OK : DWARF_CB_ABORT;
    };
    dwfl_getmodules(mpDwfl, visit, &visitor, 0);
}

}  // namespace DebugHelp
