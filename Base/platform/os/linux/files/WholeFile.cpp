#include <Base/platform/os/linux/files/WholeFile.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

#include <Base/platform/os/linux/errors/ErrorCodes.h>

namespace ZBase::os {

bool ReadWholeFile(const char* path, std::string& content) {
    const struct File {
        int descriptor;
        ~File() {
            if (descriptor >= 0) close(descriptor);
        }
    } file{open(path, O_RDONLY | O_CLOEXEC)};
    ssize_t count = -1;
    if (file.descriptor >= 0) {
        char piece[4096];
        while ((count = read(file.descriptor, piece, sizeof piece)) > 0 || (count < 0 && errno == EINTR)) {
            if (count > 0) content.append(piece, static_cast<std::size_t>(count));
        }
    }
    if (count < 0) SetLastCodeFromErrno();
    return count == 0;
}

}  // namespace ZBase::os
