#include "OpenFile.h"

#include <Base/ZBase.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

namespace {

// Ids of the command's own messages, in the domain of the server.
constexpr int kCannotOpen = 101;
constexpr int kCannotRead = 102;

}  // namespace

OpenFile::OpenFile(const std::string& file)
    : mName(file), mDescriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat facts {};
    if (mDescriptor < 0 || fstat(mDescriptor, &facts) != 0) Throw(kCannotOpen, "Cannot open %1.");
    mSize = static_cast<std::size_t>(facts.st_size);
}

OpenFile::~OpenFile() {
    close(mDescriptor);
}

std::size_t OpenFile::ReadAt(std::size_t offset, char* destination, std::size_t size) const {
    std::size_t done = 0;
    while (done != size) {
        const ssize_t count =
            pread(mDescriptor, destination + done, size - done, static_cast<off_t>(offset + done));
        if (count == 0) break;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) Throw(kCannotRead, "Cannot read %1.");
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void OpenFile::Throw(int id, const char* text) const {
    ZBase::ExceptionImpl<ZBase::Message> failure;
    failure.SetDomainAndID(ZBase::MESSAGE_DOMAIN_ERRNO, errno);
    failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, id, text) << mName.c_str();
    throw failure;
}
