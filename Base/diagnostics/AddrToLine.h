#pragma once

#include <Base/diagnostics/ModuleInfo.h>
#include <Base/frame/Api.h>

#include <cstdint>
#include <string>

namespace ZBase {

/// Turns raw addresses into text. May not run beside any other use of debug help.
class ZBASE_API AddrToLine {
public:
    AddrToLine();

    /// Records that it was called, and nothing else.
    void Initialize();

    /// The path of the module, the symbol, the source file and the decimal line of an address. An unknown
    /// module is set to empty, the others are not changed if unknown. `gDbgHelpBuilder` has to be ready.
    void Fetch(const std::uint64_t& address, std::string& module, std::string& symbol, std::string& file,
               std::string& line);

private:
    ModuleInfo mModules;
    bool mIsInitialized;
};

}  // namespace ZBase
