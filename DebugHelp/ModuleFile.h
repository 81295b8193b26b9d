#pragma once

#include <elfutils/libdwfl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace DebugHelp {

/// A module of the process as it is loaded.
struct LoadedModule {
    std::uint64_t start;
    std::uint64_t end;
    std::uint64_t bias;  // what an address in the file is moved by
    const char* name;    // the loader's; empty for the program

    /// The module around `address`; false if there is none. No lock.
    static bool Find(std::uint64_t address, LoadedModule& module);

    /// The octets of its build id where they are mapped; empty if it has none.
    std::string_view BuildId() const;

    std::string Path() const;
};

/// A module's file: as it was when it was loaded, also if it was deleted or replaced since, and if it can't
/// be opened, what of it is mapped.
class ModuleFile {
public:
    explicit ModuleFile(const LoadedModule& module);
    ~ModuleFile();
    ModuleFile(const ModuleFile&) = delete;
    ModuleFile& operator=(const ModuleFile&) = delete;

    const std::string& Path() const { return mPath; }

    /// Gives the file to elfutils: a handle, which is given away, or else -1 and the file in memory, null if
    /// that can't be had either.
    int Open(Elf** inMemory);

    /// Whether another try may find more, since no file could be opened now.
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
