// The kernel copies, so that no page can fault. Sandboxes refuse that call, since the same one reads other
// processes. Then the kernel is asked for each page by a call that every program needs: one that changes the
// signal mask reads the new mask before it finds that it is to be changed in no known way. The copy itself is
// then an ordinary one; a page that another thread unmaps in between would fault.

#include <Base/platform/os/linux/memory/OwnMemory.h>
#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <iterator>

namespace ZBase::os {

namespace {

constexpr std::uint64_t kPage = 4096;

// Whether the word around the address can be read, and so its page.
bool IsReadable(std::uint64_t address) {
    constexpr int kNoKnownWay = -1;
    constexpr std::size_t kWord = 8;  // the kernel's mask
    return syscall(SYS_rt_sigprocmask, kNoKnownWay, address & ~(kWord - 1), nullptr, kWord) != 0 &&
           errno == EINVAL;
}

ZBASE_READS_STACKS void CopyReadable(const volatile unsigned char* from, unsigned char* to,
                                     std::size_t size) {
    for (std::size_t i = 0; i != size; ++i) to[i] = from[i];
}

std::size_t CopyPageByPage(std::uint64_t address, unsigned char* to, std::size_t size) {
    std::size_t done = 0;
    while (done != size && IsReadable(address + done)) {
        const std::size_t piece = std::min<std::size_t>(size - done, kPage - (address + done) % kPage);
        CopyReadable(reinterpret_cast<const volatile unsigned char*>(address + done), to + done, piece);
        done += piece;
    }
    return done;
}

}  // namespace

std::size_t CopyOwnMemory(std::uint64_t address, void* to, std::size_t size) {
    const int error = errno;
    auto* const octets = static_cast<unsigned char*>(to);
    std::size_t done = 0;
    while (done != size) {
        // An element of the list is copied as a whole or not at all.
        iovec pieces[16];
        std::size_t count = 0;
        std::uint64_t place = address + done;
        std::size_t left = size - done;
        for (; left != 0 && count != std::size(pieces); ++count) {
            const std::size_t piece = std::min<std::size_t>(left, kPage - place % kPage);
            pieces[count] = {reinterpret_cast<void*>(place), piece};
            place += piece;
            left -= piece;
        }
        const iovec local{octets + done, size - done - left};
        const ssize_t copied = process_vm_readv(getpid(), &local, 1, pieces, count, 0);
        if (copied < 0 && (errno == EPERM || errno == ENOSYS)) {
            done += CopyPageByPage(address + done, octets + done, size - done);
            break;
        }
        done += copied < 0 ? 0 : static_cast<std::size_t>(copied);
        if (copied != static_cast<ssize_t>(local.iov_len)) break;
    }
    errno = error;
    return done;
}

}  // namespace ZBase::os
