#include <Base/platform/os/linux/files/AbsoluteDirectory.h>

#include <unistd.h>
#include <climits>
#include <cstdlib>

namespace ZBase::os {

namespace {

constexpr std::size_t kNameLength = sizeof "/01234567-0123-0123-0123-0123456789ab.dmp" - 1;

}  // namespace

std::string AbsoluteDirectory(const std::string& directory) {
    std::string absolute = directory;
    if (absolute.empty() || absolute[0] != '/') {
        char* present = getcwd(nullptr, 0);
        if (present == nullptr) return "";
        absolute = std::string(present) + "/" + directory;
        std::free(present);
    }
    return absolute.size() + kNameLength < PATH_MAX ? absolute : "";
}

}  // namespace ZBase::os
