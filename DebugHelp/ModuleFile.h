#pragma once

#include <elfutils/libdwfl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace DebugHelp {

/// A loaded module.
struct LoadedModule {
    std::uint64_t start;
    std::uint64_t end;
    std::uint64_t bias;  // the difference between addresses in memory and in the file
    const char* name;    // the loader's; empty for the program

    /// The module that contains `address`; false if there is none. No lock.
    static bool Find(std::uint64_t address, LoadedModule& module);

    /// The mapped octets of its build id; empty if it has none.
    std::string_view BuildId() const;

    std::string Path() const;
};

/// A module's file: the one that was loaded, even if it was deleted or replaced since, or the mapped part of
/// it if it can't be opened.
class ModuleFile {
public:
    explicit ModuleFile(const LoadedModule& module);
    ~ModuleFile();
    ModuleFile(const ModuleFile&) = delete;
    ModuleFile& operator=(const ModuleFile&) = delete;

    const std::string& Path() const { return mPath; }

    /// Opens the file for elfutils: returns a descriptor, which the caller owns, or else -1 with the file in
    /// memory, null if that fails too.
    int Open(Elf** inMemory);

    /// Whether another try may find more, since the process was out of descriptors.
    bool IsForWantOfFiles() const { return mIsForWantOfFiles; }

private:
    int OpenFile(const std::string& path, bool isSure);
    void CopyMapped();

    LoadedModule mModule;
    std::string mPath;
    std::vector<char> mCopy;
    bool mIsForWantOfFiles = false;
};

}  // namespace DebugHelp
