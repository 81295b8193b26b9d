#pragma once

#include <DebugHelp/ModuleSymbols.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace DebugHelp {

struct Module {
    std::uint64_t base;
    std::uint64_t size;
    std::string path;
};

/// The symbols of this process's modules. They are read when a module is first asked for, and kept by its
/// build id: whatever else is loaded and unloaded meanwhile, and when it comes back itself.
class SymbolEngine {
public:
    void Begin() { mIsBegun = true; }
    void End();
    bool IsBegun() const { return mIsBegun; }

    /// What is told of an address, in addresses of this process. The texts stay until the next call, the
    /// file's for good.
    struct FoundSymbol {
        const std::string* name;
        std::uint64_t start;
        std::uint64_t size;
    };
    bool FindSymbol(std::uint64_t address, FoundSymbol& symbol);
    struct FoundLine {
        const std::string* file;
        std::uint32_t number;
        std::uint64_t address;
    };
    bool FindLine(std::uint64_t address, FoundLine& line);
    bool FindModule(std::uint64_t address, Module& module);

    /// The modules that are loaded now.
    std::vector<Module> Modules() const;

    /// The address of the call, where `address` lies behind a call whose function ends with it: that call
    /// never returns, and what lies behind it is another function. Else `address` itself.
    std::uint64_t CallBefore(std::uint64_t address);

    /// Directories in which debug files are looked for, in the form of elfutils; empty for the usual ones.
    std::string searchPath;

private:
    struct Known {
        std::unique_ptr<ModuleSymbols> symbols;
        std::uint64_t start = 0;  // where it was last
        std::uint64_t use = 0;
    };

    /// What was at a place when it was last asked for; found again without the heap.
    struct Recent {
        std::string id;
        std::string name;
        ModuleSymbols* symbols;
    };

    ModuleSymbols* SymbolsOf(const LoadedModule& module);
    ModuleSymbols* Read(const LoadedModule& module, std::string_view id);
    void ForgetUnloaded();

    bool mIsBegun = false;
    std::uint64_t mUses = 0;
    std::map<std::string, Known> mModules;              // by id and path
    std::unordered_map<std::uint64_t, Recent> mRecent;  // by start
    std::unique_ptr<ModuleSymbols> mpProvisional;
    FileNames mNames;
};

}  // namespace DebugHelp
