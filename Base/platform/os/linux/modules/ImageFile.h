#pragma once

#include <string>
#include <vector>

namespace ZBase::os {

/// What an image needs of the loader besides being mapped.
struct ImageNeeds {
    std::vector<std::string> names;  // the modules that it needs
    std::string path;                // where else to look for them, folders with ":" between them
    bool pathIsLate = false;         // searched after those of the environment
};

enum class EImage {
    kUnseen,   // the file can't be opened; the loader has the reason
    kForeign,  // not an image of this machine: skipped in a search
    kDamaged,  // the loader would read past its end or outside of what it maps
    kSound,
};

/// Checks an image by calls that can fail. The loader maps a file and trusts its headers: where they point
/// outside of the file, the process is ended by a signal inside the loader. So everything that it follows
/// before it relocates is followed here first. A file that passed must not change until it is loaded, and
/// while it is.
EImage ReadImage(const std::string& file, ImageNeeds& needs);

/// Whether the loader may look at the headers of a file at all: it copies the table of segments, of whatever
/// size, onto the stack of its thread, which may be small.
bool HasHeadersForAnyStack(const std::string& file);

}  // namespace ZBase::os
