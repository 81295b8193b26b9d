#include <Base/platform/os/ErrorStream.h>

#include <unistd.h>
#include <cerrno>

namespace ZBase::os {

void WriteErrorText(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace ZBase::os
