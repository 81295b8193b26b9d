#pragma once

namespace test {

/// What the system under the logic makes as a new identifier.
struct Identifiers {
    unsigned int status = 0;
    unsigned char octets[16] = {};
};

inline Identifiers gIdentifiers;

}  // namespace test
