#pragma once

namespace ZBase::os {

/// Fills the 16 octets of a new identifier, in the order of its text form (RFC 4122). Returns 0, or a system
/// code: 1824 when the identifier would be unique on this computer only.
unsigned int CreateIdentifier(unsigned char* octets);

}  // namespace ZBase::os
