#pragma once

#include "Descriptor.h"

#include <sys/stat.h>
#include <string>

namespace ZLiteXML {

/// A resolved path: a directory, held open so that renames and changes of the current directory don't matter,
/// and a name in it. Failures are error numbers, not exceptions.
class FilePlace {
public:
    /// Resolves a path up to its directory. Zero, or an error number.
    int Find(const std::string& path);

    /// The same place after all symbolic links; one that leads out of the file system's names, such as
    /// /dev/stdout, is not followed.
    int FollowLinks();

    /// The status of the file there, of a link itself. Zero, or an error number.
    int Look(struct stat& facts) const;

    int Directory() const { return mDirectory.Get(); }
    const char* Name() const { return mName.c_str(); }

    /// Opens the directory for synchronising it; leaves that out if this process may not read it.
    int OpenDirectory(Descriptor& directory) const;

private:
    int Step(const std::string& path);

    Descriptor mDirectory;
    std::string mName;
};

}  // namespace ZLiteXML
