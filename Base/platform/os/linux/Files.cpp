#include <Base/platform/os/Files.h>
#include <Base/platform/os/linux/NativeText.h>

#include <sys/stat.h>
#include <unistd.h>

namespace ZBase::os {

bool PathExists(const unsigned short* path) {
    return access(ToNative(path).c_str(), F_OK) == 0;
}

bool CreatePrivateDirectory(const unsigned short* path) {
    return mkdir(ToNative(path).c_str(), S_IRWXU) == 0;
}

}  // namespace ZBase::os
