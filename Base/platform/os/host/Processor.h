#pragma once

namespace ZBase::os {

// The instruction sets that the processor has and the system lets programs use. No lock and no heap, at any
// time.

/// AVX2, with BMI1, BMI2 and POPCNT.
bool ProcessorHasAvx2();

/// The same and AVX-512 F, BW, DQ and VL.
bool ProcessorHasAvx512();

}  // namespace ZBase::os
