#include <Base/platform/os/host/Identifiers.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>
#include <uuid/uuid.h>
#include <cerrno>
#include <cstring>

namespace ZBase::os {

namespace {

bool HasRandomNumbers() {
    unsigned char octet = 0;
    ssize_t count = 0;
    do count = getrandom(&octet, sizeof octet, 0);
    while (count < 0 && errno == EINTR);
    return count == sizeof octet;
}

// The device is there also where a sandbox or an old kernel refuses the call.
bool ReadRandomOctets(unsigned char (&octets)[16]) {
    const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (device < 0) return false;
    ssize_t count = 0;
    do count = read(device, octets, sizeof octets);
    while (count < 0 && errno == EINTR);
    close(device);
    return count == sizeof octets;
}

}  // namespace

// Without random numbers from the call, libuuid silently uses the time and the process id.
unsigned int CreateIdentifier(unsigned char* octets) {
    if (HasRandomNumbers()) {
        uuid_generate_random(octets);
        return kSuccess;
    }
    unsigned char random[16];
    if (!ReadRandomOctets(random)) return kIdentifierIsLocal;
    random[6] = static_cast<unsigned char>((random[6] & 0x0F) | 0x40);  // version 4, as RFC 4122 has it
    random[8] = static_cast<unsigned char>((random[8] & 0x3F) | 0x80);  // its variant
    std::memcpy(octets, random, sizeof random);
    return kSuccess;
}

}  // namespace ZBase::os
