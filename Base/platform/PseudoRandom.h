#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// A number from 1 to `upperBound`, both included; 1 for a bound of 0. It comes from 15 random bits, so with
/// a bound above 32768 not every number can occur. Seeds `std::rand` at its first call.
ZBASE_API unsigned int GetPseudoRandomInt32(unsigned int upperBound);

}  // namespace ZBase
