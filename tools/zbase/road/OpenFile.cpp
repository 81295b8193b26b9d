#include "OpenFile.h"
#include "tools/system/Files.h"

#include <Base/ZBase.h>

#include <cerrno>

namespace {

// Ids of the command's own messages, in the domain of the server.
constexpr int kCannotOpen = 101;
constexpr int kCannotRead = 102;

}  // namespace

OpenFile::OpenFile(const std::string& file) : mName(file), mDescriptor(OpenToRead(file)) {
    const std::optional<std::uint64_t> size = mDescriptor < 0 ? std::nullopt : SizeOfOpenFile(mDescriptor);
    if (!size) Throw(kCannotOpen, "Cannot open %1.");
    mSize = static_cast<std::size_t>(*size);
}

OpenFile::~OpenFile() {
    CloseDescriptor(mDescriptor);
}

std::size_t OpenFile::ReadAt(std::size_t offset, char* destination, std::size_t size) const {
    std::size_t done = 0;
    while (done != size) {
        const long count = ReadSomeAt(mDescriptor, offset + done, destination + done, size - done);
        if (count == 0) break;
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
