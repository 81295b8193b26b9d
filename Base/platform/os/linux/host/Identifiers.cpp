#include <Base/platform/os/host/Identifiers.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>

#include <sys/random.h>
#include <uuid/uuid.h>
#include <cerrno>

namespace ZBase::os {

namespace {

bool HasRandomNumbers() {
    unsigned char octet = 0;
    ssize_t count = 0;
    do count = getrandom(&octet, sizeof octet, 0);
    while (count < 0 && errno == EINTR);
    return count == sizeof octet;
}

}  // namespace

// Without random numbers libuuid silently uses the time and the process id.
unsigned int CreateIdentifier(unsigned char* octets) {
    if (!HasRandomNumbers()) return kIdentifierIsLocal;
    uuid_generate_random(octets);
    return kSuccess;
}

}  // namespace ZBase::os
