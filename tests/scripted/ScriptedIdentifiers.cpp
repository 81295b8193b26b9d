#include "tests/scripted/ScriptedIdentifiers.h"

#include <Base/platform/os/host/Identifiers.h>

#include <algorithm>

namespace ZBase::os {

unsigned int CreateIdentifier(unsigned char* octets) {
    std::copy_n(test::gIdentifiers.octets, 16, octets);
    return test::gIdentifiers.status;
}

}  // namespace ZBase::os
