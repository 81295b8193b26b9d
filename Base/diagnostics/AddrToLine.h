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

    /// Notes that it was called, and no more.
    void Initialize();

    /// The path of the module, the symbol, the source file and the decimal line of an address, as far as they
    /// are known: the module is empty otherwise, the others stay as they were. `gDbgHelpBuilder` has to be
    /// ready.
    void Fetch(const std::uint64_t& address, std::string& module, std::string& symbol, std::string& file,
               std::string& line);

private:
    ModuleInfo mModules;
    bool mIsInitialized;
};

}  // namespace ZBase
