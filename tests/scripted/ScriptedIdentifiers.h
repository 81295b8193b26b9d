#pragma once

namespace test {

/// The system's new identifier for the logic.
struct Identifiers {
    unsigned int status = 0;
    unsigned char octets[16] = {};
};

inline Identifiers gIdentifiers;

}  // namespace test
