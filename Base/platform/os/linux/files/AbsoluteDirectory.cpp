#include <Base/platform/os/linux/files/AbsoluteDirectory.h>

#include <unistd.h>
#include <climits>
#include <cstdlib>
#include <memory>

namespace ZBase::os {

namespace {

constexpr std::size_t kNameLength = sizeof "/01234567-0123-0123-0123-0123456789ab.dmp" - 1;

}  // namespace

std::string AbsoluteDirectory(const std::string& directory) {
    std::string absolute = directory;
    if (absolute.empty() || absolute[0] != '/') {
        const std::unique_ptr<char, void (*)(void*)> present(getcwd(nullptr, 0), std::free);
        if (present == nullptr) return "";
        absolute = std::string(present.get()) + "/" + directory;
    }
    return absolute.size() + kNameLength < PATH_MAX ? absolute : "";
}

}  // namespace ZBase::os
