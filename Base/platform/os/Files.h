#pragma once

#include <string>

namespace ZBase::os {

/// Whether a file or a directory stands there.
bool PathExists(const unsigned short* path);

/// Creates one directory, which only the owner can read; false if it can't be made.
bool CreatePrivateDirectory(const unsigned short* path);

}  // namespace ZBase::os
