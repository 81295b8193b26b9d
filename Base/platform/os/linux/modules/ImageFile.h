#pragma once

#include <string>
#include <vector>

namespace ZBase::os {

/// What an image asks of the loader besides being mapped.
struct ImageNeeds {
    std::vector<std::string> names;  // the modules that it needs
    std::string path;                // where else to look for them, folders with ":" between them
    bool pathIsLate = false;         // these folders come behind those of the environment
};

enum class EImage {
    kUnseen,   // the file can't be opened; the loader says why
    kForeign,  // no image of this machine: a search for a module passes over it
    kDamaged,  // the loader would read behind its end or outside of what it maps
    kSound,
};

/// Looks at an image through calls that can fail. The loader maps a file and believes its headers: where they
/// name what the file does not hold, the process is ended by a signal in the midst of the loader. So all that
/// it follows before it relocates is followed here first. What has been found sound must stay as it is until
/// it is loaded, and for as long as it is.
EImage ReadImage(const std::string& file, ImageNeeds& needs);

}  // namespace ZBase::os
