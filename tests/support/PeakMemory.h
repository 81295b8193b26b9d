#pragma once

#include <cstddef>

namespace test {

/// The peak of this process's memory since `PeakMemoryFromNowOn`, in bytes.
std::size_t PeakMemory();

/// Begins anew with what is used now, and gives that.
std::size_t PeakMemoryFromNowOn();

}  // namespace test
