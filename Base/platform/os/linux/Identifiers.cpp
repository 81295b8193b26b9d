#include <Base/platform/os/Identifiers.h>

#include <uuid/uuid.h>

namespace ZBase::os {

unsigned int CreateIdentifier(unsigned char* octets) {
    uuid_generate_random(octets);
    return 0;
}

}  // namespace ZBase::os
