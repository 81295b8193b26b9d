#pragma once

#include "Descriptor.h"
#include "FilePlace.h"

#include <sys/stat.h>
#include <string>

namespace ZLiteXML {

/// A new file that is invisible until it replaces another, or has a temporary name if the file system has no
/// O_TMPFILE. It is removed unless it replaces one. Each operation returns zero or an error number.
class NewFile {
public:
    NewFile() = default;
    ~NewFile() { RemoveName(); }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// In the directory of a place, which must outlive the object. Readable for no more users than `old`, the
    /// file at the place, if that is not null.
    int Create(const FilePlace& place, const struct stat* old);

    /// Anywhere; it can't replace a file then.
    int CreateElsewhere();

    /// Sets the owner, permissions and access list of the file that it is to replace, as far as this process
    /// may; never more permissions. Fails where only a descriptor or memory is wanting.
    int TakeAfter(const FilePlace& place, const struct stat& old);

    /// Synchronised before it replaces the old file, and all that this takes is there before. `EXDEV` if it
    /// can't replace one.
    int TakePlace();

    /// Removes its temporary name, if any; it can't replace a file then.
    void RemoveName();

    bool IsOpen() const { return mFile.IsOpen(); }
    int Get() const { return mFile.Get(); }

private:
    int Name();
    int LinkOnce();
    int CopyUnderName();

    const FilePlace* mpPlace = nullptr;  // held, not owned
    Descriptor mFile;
    std::string mName;  // its temporary name; empty: none
};

}  // namespace ZLiteXML
