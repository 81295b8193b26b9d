// The C library keeps the text of its last abort for debuggers, in pages of its own, under a name that is not
// in its headers (__abort_msg).

#include <Base/platform/os/crash/CrashDumps.h>
#include <Base/platform/os/linux/crash/CrashEquipment.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>

namespace ZBase::os {

struct AbortMessage {
    unsigned int size;  // of the pages
    char text[1];
};

namespace {

using Place = const AbortMessage* const volatile*;

Place FindAbortMessage() {
    return static_cast<Place>(dlvsym(RTLD_DEFAULT, "__abort_msg", "GLIBC_PRIVATE"));
}

// Another thread that aborts may unmap them. Writing to a pipe fails for unreadable memory.
bool Read(void* to, const void* from, std::size_t size) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    const auto whole = static_cast<ssize_t>(size);
    const bool isRead = write(ends[1], from, size) == whole && read(ends[0], to, size) == whole;
    close(ends[0]);
    close(ends[1]);
    return isRead;
}

}  // namespace

void PrepareAbortMessage() {
    if (gEquipment.abortMessage == nullptr) gEquipment.abortMessage = FindAbortMessage();
}

std::size_t CopyAbortMessage(char* text, std::size_t size) {
    const Place place = gEquipment.abortMessage;
    const AbortMessage* const message = place == nullptr ? nullptr : *place;
    unsigned int pages = 0;
    if (message == nullptr || !Read(&pages, message, sizeof pages) || pages <= sizeof pages) return 0;
    const std::size_t octets = std::min<std::size_t>(size - 1, pages - sizeof pages);
    if (!Read(text, message->text, octets)) return 0;
    text[octets] = 0;
    return std::strlen(text);
}

}  // namespace ZBase::os
