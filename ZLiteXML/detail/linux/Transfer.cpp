#include "Transfer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>

namespace ZLiteXML {

int WriteAll(int to, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(to, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0) {
            return EIO;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int CopyAll(int from, int to) {
    char piece[16384];
    for (off_t at = 0;;) {
        const ssize_t count = pread(from, piece, sizeof piece, at);
        if (count == 0) return 0;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        const int error = WriteAll(to, {piece, static_cast<std::size_t>(count)});
        if (error != 0) return error;
        at += count;
    }
}

int ReplaceContent(int from, int to) {
    struct stat old {};
    struct stat content {};
    if (fstat(to, &old) != 0 || fstat(from, &content) != 0) return errno;
    if (content.st_size > 0) {
        int error = EINTR;
        while (error == EINTR) error = posix_fallocate(to, 0, content.st_size);
        if (error == ENOSPC || error == EDQUOT || error == EFBIG || error == EIO) {
            return ftruncate(to, old.st_size) == 0 ? error : errno;
        }
    }
    const int error = CopyAll(from, to);
    if (error != 0) return error;
    if (ftruncate(to, content.st_size) != 0 || fsync(to) != 0) return errno;
    return 0;
}

BrokenPipesFail::BrokenPipesFail() {
    sigset_t pending{};
    sigpending(&pending);
    if (sigismember(&pending, SIGPIPE) == 1) return;  // it is blocked then
    sigset_t pipe{};
    sigset_t before{};
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    mIsBlocked = pthread_sigmask(SIG_BLOCK, &pipe, &before) == 0 && sigismember(&before, SIGPIPE) == 0;
}

BrokenPipesFail::~BrokenPipesFail() {
    if (!mIsBlocked) return;
    sigset_t pipe{};
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    const timespec now{};
    while (sigtimedwait(&pipe, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

}  // namespace ZLiteXML
