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

/// The symbols of this process's modules. They are read when a module is first looked up, and cached by its
/// build id, whatever is loaded and unloaded meanwhile.
class SymbolEngine {
public:
    void Begin() { mIsBegun = true; }
    void End();
    bool IsBegun() const { return mIsBegun; }

    /// The symbol of an address, in addresses of this process. The texts are valid until the next call, the
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

    /// The address of the call, if `address` follows a call at the end of its function: that call never
    /// returns, and another function follows it. Else `address` itself.
    std::uint64_t CallBefore(std::uint64_t address);

    /// The directories to search for debug files, in the form of elfutils; empty for the default ones.
    std::string searchPath;

private:
    struct Known {
        std::unique_ptr<ModuleSymbols> symbols;
        std::uint64_t start = 0;  // its last address
        std::uint64_t use = 0;
    };

    /// The last result for an address; found again without the heap.
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
