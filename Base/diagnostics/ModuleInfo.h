#pragma once

#include <Base/frame/Api.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

namespace ZBase {

/// The modules of the process by base address. The look-ups take no lock and may not run at the same time.
class ZBASE_API ModuleInfo {
public:
    ModuleInfo();
    ~ModuleInfo();
    ModuleInfo(const ModuleInfo&) = delete;
    ModuleInfo& operator=(const ModuleInfo&) = delete;

    /// Reads the modules of the process, at most 256, once; a failure is not tried again. Any thread may call
    /// it.
    void Initialize();

    /// Writes a line for each module, in the order of their addresses: name, base, and its negated base cut
    /// to 32 bits, since no ends are known. Initialises if need be. True.
    bool FprintfModuleInfo(std::FILE* file);

    /// The name and base of the last module that begins below `address`, even if the address is beyond its
    /// end. Leaves the results unchanged if there is none, before `Initialize`, and after
    /// `FprintfModuleInfo`.
    void FetchModuleNameAndBaseAddress(const std::uint64_t& address, std::string& name, std::uint64_t& base);

private:
    std::map<std::uint64_t, std::string> mNames;
    std::map<std::uint64_t, std::uint64_t> mEnds;  // filled only by `FprintfModuleInfo`, with zeros
    std::atomic<bool> mIsInitialized{false};
    std::recursive_mutex mLock;
};

}  // namespace ZBase
