#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace ZBase::os {

/// Whether a file or a directory exists at `path`.
bool PathExists(const unsigned short* path);

/// Whether what stands at `path`, itself and not what it leads to, belongs to the user that this process acts
/// for; false if that can't be told.
bool IsOwnFile(const std::string& path);

/// The C library's `fopen` for a path in UTF-8.
std::FILE* OpenFile(const char* path, const char* mode);

/// Creates one directory, which only the owner can read; false if it can't be made.
bool CreatePrivateDirectory(const unsigned short* path);

/// A regular file of a directory.
struct FileEntry {
    const char* name;
    unsigned long long octets;
    long long changed;  // the last change, in seconds since 1970
    unsigned int nanoseconds;
};

/// Calls `visit` with each regular file of the directory, without links, as far as it can be read. Does not
/// use the heap.
void VisitFiles(const std::string& directory, const std::function<void(const FileEntry&)>& visit);

/// Calls `visit` with the name of each directory in it, links left out, as far as it can be read. Takes
/// nothing from the heap.
void VisitDirectories(const std::string& directory, const std::function<void(const char*)>& visit);

}  // namespace ZBase::os
