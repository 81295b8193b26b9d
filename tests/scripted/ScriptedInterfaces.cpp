#include "tests/scripted/ScriptedInterfaces.h"

namespace ZBase::os {

std::vector<NetworkAddress> OwnAddresses() {
    return test::gOwnAddresses;
}

}  // namespace ZBase::os
