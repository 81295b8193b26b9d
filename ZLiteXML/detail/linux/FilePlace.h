#pragma once

#include "Descriptor.h"

#include <sys/stat.h>
#include <string>

namespace ZLiteXML {

/// Where a path leads: a directory, which is held so that it stays the same one whatever is moved or
/// whichever is the current directory, and a name in it. What is done there fails with an error number, not
/// with an exception.
class FilePlace {
public:
    /// Looks a path up as far as the directory. Zero, or an error number.
    int Find(const std::string& path);

    /// The same place behind all symbolic links; one that leads out of the file system's names, such as
    /// /dev/stdout, is where it ends.
    int FollowLinks();

    /// What stands there: for a link the link. Zero, or an error number.
    int Look(struct stat& facts) const;

    int Directory() const { return mDirectory.Get(); }
    const char* Name() const { return mName.c_str(); }

    /// Brings the directory's entries to the disk, where this process may read it.
    int Sync() const;

private:
    int Step(const std::string& path);

    Descriptor mDirectory;
    std::string mName;
};

}  // namespace ZLiteXML
