#pragma once

#include "Descriptor.h"
#include "FilePlace.h"

#include <sys/stat.h>
#include <string>

namespace ZLiteXML {

/// A file that is to take a place and is nowhere to be seen until then, or only under a name of its own where
/// the file system has no files without names. It is gone if it does not take the place. Zero or an error
/// number from each.
class NewFile {
public:
    NewFile() = default;
    ~NewFile() { RemoveName(); }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// In the directory of a place, which the object uses as long as it lives. Readable for no more people
    /// than `old`, what stands at the place, if that is not null.
    int Create(const FilePlace& place, const struct stat* old);

    /// Anywhere; it can take no place then.
    int CreateElsewhere();

    /// The owner, permissions and access list of a file that it is to replace, or as much of them as this
    /// process may give; never more permissions.
    void TakeAfter(const FilePlace& place, const struct stat& old);

    /// On the disk before it takes the place of what was there. `EXDEV` where it can take none.
    int TakePlace();

    /// Gives up a name that it may have; it takes no place any more.
    void RemoveName();

    bool IsOpen() const { return mFile.IsOpen(); }
    int Get() const { return mFile.Get(); }

private:
    int Name();
    int LinkOnce();
    int CopyUnderName();

    const FilePlace* mpPlace = nullptr;  // held, not owned
    Descriptor mFile;
    std::string mName;  // its own for now; empty: none
};

}  // namespace ZLiteXML
